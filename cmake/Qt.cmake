# Qt's Nfc module, where it is installed: TAGPORT_QT_NFC is its target, else it is empty. Only a
# benchmark and a test use it.
set(TAGPORT_QT_NFC)
find_package(QT NAMES Qt6 Qt5 QUIET COMPONENTS Nfc)
if(QT_FOUND)
  find_package(Qt${QT_VERSION_MAJOR} QUIET COMPONENTS Nfc)
  if(TARGET Qt${QT_VERSION_MAJOR}::Nfc)
    set(TAGPORT_QT_NFC Qt${QT_VERSION_MAJOR}::Nfc)
  endif()
endif()
