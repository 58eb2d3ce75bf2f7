#include "manager/NumberWatch.h"

#include "manager/ManagerLocks.h"
#include "platform/platform.h"

namespace {

// First of the watches, each owned by the operation or thread that it serves. Under g_memoryMutex.
NumberWatch* g_firstWatch = nullptr;

}  // namespace

NumberWatch::~NumberWatch() {
    if (!m_listed) {
        return;
    }
    platform::Lock lock(g_memoryMutex);
    NumberWatch** link = &g_firstWatch;
    while (*link != this) {
        link = &(*link)->m_next;
    }
    *link = m_next;
}

void NumberWatch::Begin(const NfcData* image) {
    m_image = image;
    m_next = g_firstWatch;
    m_listed = true;
    g_firstWatch = this;
}

void NumberWatch::BeginWithKnown(const NfcData* image) {
    for (const NumberWatch* watch = g_firstWatch; watch != nullptr; watch = watch->m_next) {
        if (watch->m_image == image && watch->m_given) {
            m_given = watch->m_given;  // all that know a number know the same
        }
    }
    Begin(image);
}

void NumberWatch::Announce(const NfcData* image, const RandomNumber& number) {
    for (NumberWatch* watch = g_firstWatch; watch != nullptr; watch = watch->m_next) {
        if (watch->m_image == image && image != nullptr) {
            watch->m_given = number;
        }
    }
}
