// Loads a test driver into the service manager and takes it out again. Windows alone; needs the
// rights of an administrator.
#pragma once

#include <string>

namespace simulator {

/// Registers NAME as a kernel-mode driver, with the file NAME.sys beside this program, and starts
/// it, unless the system starts it when a device needs it. One that is registered already is
/// started only. Throws std::runtime_error with the step and the error code.
void LoadDriver(const std::wstring& name, bool start = true);

/// Stops the driver and removes it from the service manager; does nothing if it is not registered.
/// A driver that the system has loaded for a device, and keeps, stays registered.
void UnloadDriver(const std::wstring& name);

}  // namespace simulator
