/* The HID minidriver of the devices on the test bus: registers with the class driver, and passes
 * every request of it down to the bus, which answers them (HidRequests.c). Kernel mode. */
#include "testdrivers/hid/HidPort.h"

static NTSTATUS NTAPI PassDown(DEVICE_OBJECT* device, PIRP irp) {
    HID_DEVICE_EXTENSION* const extension = (HID_DEVICE_EXTENSION*)device->DeviceExtension;
    IoSkipCurrentIrpStackLocation(irp);
    return IoCallDriver(extension->NextDeviceObject, irp);
}

static NTSTATUS NTAPI PassPowerDown(DEVICE_OBJECT* device, PIRP irp) {
    HID_DEVICE_EXTENSION* const extension = (HID_DEVICE_EXTENSION*)device->DeviceExtension;
    PoStartNextPowerIrp(irp);
    IoSkipCurrentIrpStackLocation(irp);
    return PoCallDriver(extension->NextDeviceObject, irp);
}

static NTSTATUS NTAPI AddDevice(DRIVER_OBJECT* driver, DEVICE_OBJECT* device) {
    (void)driver;
    device->Flags &= ~(ULONG)DO_DEVICE_INITIALIZING;
    return STATUS_SUCCESS;
}

static void NTAPI Unload(DRIVER_OBJECT* driver) {
    (void)driver;
}

NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT* driver, UNICODE_STRING* registryPath) {
    HID_MINIDRIVER_REGISTRATION registration = {
        .Revision = HID_REVISION, .DriverObject = driver, .RegistryPath = registryPath};
    driver->MajorFunction[IRP_MJ_INTERNAL_DEVICE_CONTROL] = PassDown;
    driver->MajorFunction[IRP_MJ_PNP] = PassDown;
    driver->MajorFunction[IRP_MJ_POWER] = PassPowerDown;
    driver->MajorFunction[IRP_MJ_SYSTEM_CONTROL] = PassDown;
    driver->DriverExtension->AddDevice = AddDevice;
    driver->DriverUnload = Unload;
    return HidRegisterMinidriver(&registration);
}
