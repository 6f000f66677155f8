// The GPS connection on Linux: a termios serial port or a demo file.
#pragma once

#include <kiv/foundation/MDebugLog.h>

#include <memory>
#include <string>

#include "gps/MGPSCommPort.h"
#include "gps/MGPSConnectImpl.h"

namespace kiv::gps {

class MGPSConnectImplPosix final : public MGPSConnectImpl {
public:
    MGPSConnectImplPosix();
    ~MGPSConnectImplPosix() override;

    bool BeginProc() override;
    void EndProc() override;
    void SetComPort(unsigned int port, unsigned int baudRate) override;
    void SetLogFile(const wchar_t* setting) override;
    void SetDemoFile(const wchar_t* path) override;
    void SetAnyTalker(bool on) override { m_anyTalker = on; }
    void SetRegMsg(const wchar_t* name, const wchar_t* value) override;
    void WriteCommand(const wchar_t* command) override;

private:
    std::wstring FailureText() const;

    std::unique_ptr<MGPSCommPort> m_commGPS;
    log::MDebugLog m_log;
    unsigned int m_comPort = 4;
    unsigned int m_baudRate = 4800;
    std::wstring m_logFile;
    std::wstring m_demoFile;
    bool m_anyTalker = false;
};

}  // namespace kiv::gps
