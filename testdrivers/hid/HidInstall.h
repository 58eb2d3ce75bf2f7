// Installs the HID test drivers without a set-up file. Windows alone.
#pragma once

namespace simulator {

/// Registers the bus and the minidriver, whose files lie beside this program, and starts the bus.
/// Harmless when they are there. Needs the rights of an administrator, and of the system for the
/// keys of the bus's devices. Throws std::runtime_error with the step and code.
void InstallHid();

/// Stops the drivers and removes their services and devices; nothing when they are not there.
void RemoveHid();

/// Waits until every device of the bus is there, or none: the system sees a change some time after
/// the bus has reported it. False after five seconds.
bool AwaitHid(bool present);

}  // namespace simulator
