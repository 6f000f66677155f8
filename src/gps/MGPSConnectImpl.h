// The implementation behind MGPSConnect; Create() gives the platform's.
#pragma once

#include <kiv/concurrent/IRunnable.h>

namespace kiv::gps {

class MGPSConnectImpl : public system::IRunnable {
public:
    static MGPSConnectImpl* Create();

    ~MGPSConnectImpl() override = default;
    virtual bool BeginProc() = 0;
    virtual void EndProc() = 0;
    virtual void SetComPort(unsigned int port, unsigned int baudRate) = 0;
    virtual void SetLogFile(const wchar_t* setting) = 0;
    virtual void SetDemoFile(const wchar_t* path) = 0;
    virtual void SetAnyTalker(bool on) = 0;
    virtual void SetRegMsg(const wchar_t* name, const wchar_t* value) = 0;
    virtual void WriteCommand(const wchar_t* command) = 0;
    /// The connection has no work of its own to run; its reader belongs to
    /// the port.
    void Run() override {}
};

}  // namespace kiv::gps
