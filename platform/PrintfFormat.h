// Lets the compiler check the arguments of a function that formats as printf does. Compilers
// without the attribute see nothing.
#pragma once

// On Windows g++ takes plain "printf" for the C run-time's dialect. Its standard library formats by
// the C standard's rules there too, and those are "gnu_printf", a name that clang does not have.
#if defined(__clang__)
#define TAGPORT_FORMAT_ATTRIBUTE(...) __attribute__((format(printf, __VA_ARGS__)))
#elif defined(__GNUC__)
#define TAGPORT_FORMAT_ATTRIBUTE(...) __attribute__((format(gnu_printf, __VA_ARGS__)))
#else
#define TAGPORT_FORMAT_ATTRIBUTE(...)
#endif

/// `text` and `first` are the positions, from 1, of the format and of the first argument that it
/// converts. `first` is 0 for a function that takes a va_list.
#define TAGPORT_PRINTF_FORMAT(text, first) TAGPORT_FORMAT_ATTRIBUTE(text, first)
