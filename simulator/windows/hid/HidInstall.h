// Installs the HID test drivers without a set-up file. Windows alone.
#pragma once

#include <string>

namespace simulator {

/// Registers the bus and the minidriver, whose files are in `directory` (with its last backslash),
/// and starts the bus. Harmless when they are there. Needs the rights of an administrator, and of
/// the system for the keys of the bus's devices. Throws std::runtime_error with the step and code.
void InstallHid(const std::wstring& directory);

/// Stops the drivers and removes their services and devices; nothing when they are not there.
void RemoveHid();

}  // namespace simulator
