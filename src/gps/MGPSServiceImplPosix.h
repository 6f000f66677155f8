// The GPS client on Linux: the daemon is a process started with
// posix_spawn; the callback thread waits on the named events and on a stop
// event of its own.
#pragma once

#include <kiv/concurrent/MThread.h>
#include <kiv/foundation/MDebugLog.h>
#include <kiv/system/MRegistry.h>

#include <atomic>
#include <memory>
#include <string>

#include "gps/MGPSServiceImpl.h"
#include "platform/Waitable.h"

namespace kiv::gps {

class MGPSServiceImplPosix final : public MGPSServiceImpl {
public:
    MGPSServiceImplPosix();
    ~MGPSServiceImplPosix() override;

    unsigned int StartService() override;
    unsigned int SetComPort(unsigned int port, unsigned int baudRate) override;
    unsigned int SetDemoFile(const wchar_t* path) override;
    unsigned int WriteGPSDataToLog(const wchar_t* setting) override;
    unsigned int WriteCommand(const wchar_t* text) override;
    unsigned int SetAnyTalker(bool on) override;
    unsigned int GetRegMsg(const wchar_t* name, wchar_t* buffer) override;
    unsigned int GetGPSPosition(MGPSPosition* position) override;
    unsigned int GetGPSDateTime(MGPSDateTime* dateTime) override;
    unsigned int GetSatellitesInView(std::vector<MSatellite*>& satellites) override;
    unsigned int SetFixCallback(MGPSCallback callback) override;
    unsigned int SetMovingCallback(MGPSCallback callback) override;
    unsigned int InvokeFixCallback() override;
    unsigned int InvokeMovingCallback() override;
    void Run() override;

private:
    unsigned int StartDaemon();
    bool ChkRegAndCreate();
    std::wstring GetKivGPSFilePath();
    void IncrementCounter();
    void DecrementCounter();
    void ResetCounter();
    void ResetGPSStatus();
    unsigned int SetRegMsg(const wchar_t* name, const wchar_t* value);
    bool ReadString(const wchar_t* name, wchar_t* buffer, unsigned int characters);

    std::atomic<MGPSCallback> m_fixCallback{nullptr};
    std::atomic<MGPSCallback> m_movingCallback{nullptr};
    bool m_counted = false;
    log::MDebugLog m_log;
    system::MRegistry m_registry;
    std::unique_ptr<system::MThread> m_thread;
    platform::Event m_stop;
    platform::Event m_fixEvent;
    platform::Event m_movingEvent;
};

}  // namespace kiv::gps
