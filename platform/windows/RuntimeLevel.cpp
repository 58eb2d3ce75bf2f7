// What tagport/tagport_export.h makes a program of the same iterator debug level look for.
#include <string>

#define TAGPORT_JOIN(name, level) name##level
#define TAGPORT_WITH_LEVEL(name, level) TAGPORT_JOIN(name, level)

extern "C" __declspec(dllexport) void TAGPORT_WITH_LEVEL(tagport_of_iterator_debug_level_,
                                                         _ITERATOR_DEBUG_LEVEL)() {}
