/* The part of the interface between the system's HID class driver and a minidriver that the test
 * drivers use. mingw-w64 has no hidport.h. */
#ifndef TAGPORT_HID_PORT_H
#define TAGPORT_HID_PORT_H

#include <ntifs.h>

/* Internal control codes of the class driver. Their buffer is the IRP's UserBuffer, which lies in
 * the kernel. */
#define TAGPORT_HID_CODE(id) CTL_CODE(FILE_DEVICE_KEYBOARD, (id), METHOD_NEITHER, FILE_ANY_ACCESS)
#define IOCTL_HID_GET_DEVICE_DESCRIPTOR TAGPORT_HID_CODE(0)
#define IOCTL_HID_GET_REPORT_DESCRIPTOR TAGPORT_HID_CODE(1)
#define IOCTL_HID_READ_REPORT TAGPORT_HID_CODE(2)
#define IOCTL_HID_WRITE_REPORT TAGPORT_HID_CODE(3) /* buffer: HID_XFER_PACKET */
#define IOCTL_HID_ACTIVATE_DEVICE TAGPORT_HID_CODE(7)
#define IOCTL_HID_DEACTIVATE_DEVICE TAGPORT_HID_CODE(8)
#define IOCTL_HID_GET_DEVICE_ATTRIBUTES TAGPORT_HID_CODE(9)

#define HID_REVISION 1
#define HID_HID_DESCRIPTOR_TYPE 0x21
#define HID_REPORT_DESCRIPTOR_TYPE 0x22

typedef struct {
    ULONG Revision;
    DRIVER_OBJECT* DriverObject;
    UNICODE_STRING* RegistryPath;
    ULONG DeviceExtensionSize;
    BOOLEAN DevicesArePolled;
    UCHAR Reserved[3];
} HID_MINIDRIVER_REGISTRATION;

/* Of the minidriver's device object. */
typedef struct {
    DEVICE_OBJECT* PhysicalDeviceObject;
    DEVICE_OBJECT* NextDeviceObject;
    void* MiniDeviceExtension;
} HID_DEVICE_EXTENSION;

typedef struct {
    ULONG Size;
    USHORT VendorID;
    USHORT ProductID;
    USHORT VersionNumber;
    USHORT Reserved[11];
} HID_DEVICE_ATTRIBUTES;

#pragma pack(push, 1)
typedef struct {
    UCHAR bLength;
    UCHAR bDescriptorType;
    USHORT bcdHID;
    UCHAR bCountry;
    UCHAR bNumDescriptors;
    struct {
        UCHAR bReportType;
        USHORT wReportLength;
    } DescriptorList[1];
} HID_DESCRIPTOR;
#pragma pack(pop)

typedef struct {
    UCHAR* reportBuffer;
    ULONG reportBufferLen;
    UCHAR reportId;
} HID_XFER_PACKET;

NTSTATUS NTAPI HidRegisterMinidriver(HID_MINIDRIVER_REGISTRATION* registration);

#endif
