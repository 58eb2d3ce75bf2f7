#include "platform/BoundedMemory.h"

#include <cerrno>
#include <cstring>

namespace platform {

int memcpy_s(void* destination, std::size_t size, const void* source, std::size_t count) {
    if (destination == nullptr) {
        return EINVAL;
    }
    if (count == 0) {
        return 0;
    }
    if (source == nullptr || count > size) {
        std::memset(destination, 0, size);
        return source == nullptr ? EINVAL : ERANGE;
    }
    std::memcpy(destination, source, count);
    return 0;
}

int memset_s(void* destination, std::size_t size, int value, std::size_t count) {
    if (destination == nullptr) {
        return EINVAL;
    }
    std::memset(destination, value, count > size ? size : count);
    return count > size ? ERANGE : 0;
}

}  // namespace platform
