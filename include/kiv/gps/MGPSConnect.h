// The daemon side of the GPS: the connection to the receiver.
//
// The daemon gives it the port settings, an optional demo file to replay
// instead of the port, and the sentence-log switch, then calls BeginProc:
// the port (or file) is opened and a reader thread feeds every chunk of bytes
// to the NMEA parser. The outcome of each start is reported in the GPS key's
// values "INIT_FLAG" ("1" after every attempt) and "ERR_MSG" (empty, or the
// failure text). EndProc stops everything; the object cannot be begun again.
#pragma once

#include <kiv/platform/KivApi.h>

namespace kiv::gps {

class MGPSConnectImpl;

class KIV_API MGPSConnect {
public:
    MGPSConnect();
    /// Ends a running connection.
    ~MGPSConnect();
    MGPSConnect(const MGPSConnect&) = delete;
    MGPSConnect& operator=(const MGPSConnect&) = delete;

    /// The serial port number (COM1 is 1) and baud rate of the next BeginProc.
    void SetComPort(unsigned int port, unsigned int baudRate);
    /// A non-empty setting switches the per-sentence log "\NMEA.Log" on.
    void SetLogFile(const wchar_t* setting);
    /// A recording to replay instead of the port; empty uses the port.
    void SetDemoFile(const wchar_t* path);
    /// Off (the default): only "$GP" sentences count. On: the talkers of
    /// multi-constellation receivers (GN, GL, GA, GB, BD, GQ) count as well.
    void SetAnyTalker(bool on);
    /// Writes the string value `name` of the GPS key.
    void SetRegMsg(const wchar_t* name, const wchar_t* value);
    /// Opens the port or the demo file and starts the reader; true on success.
    bool BeginProc();
    /// Stops the reader and closes the port.
    void EndProc();
    /// Sends `command` to the receiver as it stands (no line end is added);
    /// nothing is sent while a demo file plays.
    void WriteCommand(const wchar_t* command);

private:
    MGPSConnectImpl* m_impl;
};

}  // namespace kiv::gps
