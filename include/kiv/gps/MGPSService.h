// What an application uses to get GPS data.
//
// The service never touches the receiver: StartService makes sure the GPS
// daemon KivGPS runs (starting it from the library's directory if needed)
// and counts this client; the Get operations read what the daemon last
// published in the registry; the Set operations pass settings and commands
// to the daemon; and a thread of the service turns the daemon's fix and
// moving events into calls of the callbacks. The last client to go stops the
// daemon.
//
// Results are 0 on success, else 0x07000001 (a registry value could not be
// read or written), 0x07000002 (the daemon could not be launched) or
// 0x07000003 (the daemon reported a start error); MError gives their
// messages. Set the callbacks before StartService.
#pragma once

#include <kiv/gps/MGPSPosition.h>
#include <kiv/platform/KivApi.h>

#include <vector>

namespace kiv::gps {

/// A fix or moving callback; it gets a null argument.
typedef int (*MGPSCallback)(void* argument);

class MGPSServiceImpl;

class KIV_API MGPSService {
public:
    MGPSService();
    /// Stops the callback thread and gives up this client's count; the last
    /// client stops the daemon.
    ~MGPSService();
    MGPSService(const MGPSService&) = delete;
    MGPSService& operator=(const MGPSService&) = delete;

    /// Starts the daemon unless it runs, waits until it has made its start
    /// attempt, and starts the callback thread when a callback is set.
    unsigned int StartService();
    /// The serial port number and baud rate the daemon is to use.
    unsigned int SetComPort(unsigned int port, unsigned int baudRate);
    /// A recording the daemon is to replay instead of the port; empty: the port.
    unsigned int SetDemoFile(const wchar_t* path);
    /// A non-empty setting switches the daemon's sentence log on.
    unsigned int WriteGPSDataToLog(const wchar_t* setting);
    /// Off (the default): the daemon takes only "$GP" sentences. On: also the
    /// talkers GN, GL, GA, GB, BD and GQ of multi-constellation receivers.
    unsigned int SetAnyTalker(bool on);
    /// A command text the daemon sends to the receiver.
    unsigned int WriteCommand(const wchar_t* text);
    /// Reads the string value `name` of the GPS key into `buffer` (260
    /// characters). Always 0.
    unsigned int GetRegMsg(const wchar_t* name, wchar_t* buffer);
    /// The position, fix state, dilutions, speed, course, altitude and used
    /// satellites; values that cannot be read leave their fields as they were.
    unsigned int GetGPSPosition(MGPSPosition* position);
    /// The UTC date and time of the last fix.
    unsigned int GetGPSDateTime(MGPSDateTime* dateTime);
    /// Appends the satellites in view, newly allocated; the caller deletes
    /// them. Always 0.
    unsigned int GetSatellitesInView(std::vector<MSatellite*>& satellites);
    unsigned int SetFixCallback(MGPSCallback callback);
    unsigned int SetMovingCallback(MGPSCallback callback);
    /// Calls the callback now, if one is set.
    unsigned int InvokeFixCallback();
    unsigned int InvokeMovingCallback();

private:
    MGPSServiceImpl* m_impl;
};

}  // namespace kiv::gps
