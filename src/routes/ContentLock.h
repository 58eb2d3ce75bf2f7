// The lock around one step on the tag.
#pragma once

#include "platform/platform.h"
#include "transfer/LockOrder.h"

/// One whole image, one whole number read, one device start or the radio of a write at a time, on
/// all routes, so that two threads never mix two images. Outside the device mutex; held over
/// transfers and over the pauses after blocks.
struct ContentLock {
    static inline platform::Mutex m_mutex{kContentLock};
};
