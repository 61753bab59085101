// The Linux providers behind each platform service. Only Services.cpp picks them.
#pragma once

#include "platform/Services.h"

namespace platform::linux_provider {

Console& standardOutput();                    // Console.cpp
MainBundle& mainBundle();                     // LinuxBundle.cpp
KitBundle& kitBundle();                       // LinuxBundle.cpp
PropertyListReader& propertyListReader();     // PlistReader.cpp (libplist)
UserDefaultsStore& userDefaultsStore();       // SqliteUserDefaults.cpp (SQLite)
URLSession& urlSession();                     // CurlUrlSession.cpp (libcurl multi)
CurrentDevice& currentDevice();               // LinuxDevice.cpp
MainScreen& mainScreen();                     // LinuxDevice.cpp
ProcessInfo& processInfo();                   // LinuxDevice.cpp
SystemInfo& systemInfo();                     // LinuxDevice.cpp
Telephony& telephony();                       // SimulatedSettings.cpp
LocationServices& locationServices();         // SimulatedSettings.cpp
AdvertisingIdentifierManager& advertising();  // SimulatedSettings.cpp
Clock& systemClock();                         // SimulatedSettings.cpp
ReportOutboxStore& reportOutboxStore();       // SqliteReportOutbox.cpp (SQLite)

}  // namespace platform::linux_provider
