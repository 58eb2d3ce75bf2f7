/* What the HID test drivers, their installation and their tests call things. Plain C. */
#ifndef TAGPORT_HID_NAMES_H
#define TAGPORT_HID_NAMES_H

/* Services; the files are NAME.sys. */
#define TAGPORT_HID_BUS_SERVICE L"tagport-hidbus"
#define TAGPORT_HID_MINI_SERVICE L"tagport-hid"

/* The bus as a device of the system's root, and what it calls the devices on it. */
#define TAGPORT_HID_BUS_ID L"ROOT\\TAGPORTHIDBUS"
#define TAGPORT_HID_ENUMERATOR L"TAGPORTHID"

/* The devices on the bus. All of them come and go together. */
#define TAGPORT_HID_MOUSE L"VID_1209&PID_0001"          /* another maker's mouse */
#define TAGPORT_HID_KEYS L"VID_7A3E&PID_10B8&MI_00"     /* the keyboard's keys */
#define TAGPORT_HID_OTHER L"VID_7A3E&PID_10B8&MI_01"    /* right usage, another product */
#define TAGPORT_HID_KEYBOARD L"VID_7A3E&PID_10B8&MI_02" /* the tag's reports */
#define TAGPORT_HID_LAST L"VID_7A3E&PID_10B8&MI_03"     /* one more with another usage */

#define TAGPORT_HID_INSTANCE L"0000"

#endif
