// Finds a DLL at the first call of it, for programs that must start where it is missing or another
// one: a PC has a Bluetooth client of its own, without the stand-in's back door. The linker calls
// this by its name.
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "platform/windows/Win32.h"

extern "C" IMAGE_DOS_HEADER __ImageBase;

namespace {

// IMAGE_DELAYLOAD_DESCRIPTOR, which not all headers have. The fields are offsets from __ImageBase.
struct DelayedDll {
    DWORD attributes;
    DWORD name;
    DWORD module;
    DWORD addresses;
    DWORD names;
    DWORD unused[3];
};

template <class Type>
Type* At(std::uintptr_t offset) {
    return reinterpret_cast<Type*>(reinterpret_cast<std::uintptr_t>(&__ImageBase) + offset);
}

// For both functions of a logger that is missing: there is none, and it logs nothing.
INT_PTR WINAPI NoLogger() {
    return 0;
}

}  // namespace

// Ends the process when there is no such DLL or function: the code that calls this may not be able
// to pass an exception on.
extern "C" FARPROC WINAPI __delayLoadHelper2(const DelayedDll* dll, FARPROC* address) {
    HMODULE& module = *At<HMODULE>(dll->module);
    if (module == nullptr) {
        module = LoadLibraryA(At<char>(dll->name));
    }
    const auto index = address - At<FARPROC>(dll->addresses);
    const char* const name = At<char>(At<std::uintptr_t>(dll->names)[index] + sizeof(WORD));
    const FARPROC found = module == nullptr ? nullptr : GetProcAddress(module, name);
    if (module == nullptr && std::strcmp(At<char>(dll->name), "TraceLog.dll") == 0) {
        *address = &NoLogger;
        return *address;
    }
    if (found == nullptr) {
        std::fprintf(stderr,
                     module == nullptr
                         ? "%s cannot be loaded: it is not here, or a DLL that it needs is not\n"
                         : "%s is not the stand-in: this needs the component \"stand-ins\"\n",
                     At<char>(dll->name));
        std::fflush(nullptr);
        TerminateProcess(GetCurrentProcess(), 1);
    }
    *address = found;
    return found;
}
