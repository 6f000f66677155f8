// The implementation behind MGPSService; Create() gives the platform's. Its
// Run is the callback loop.
#pragma once

#include <kiv/concurrent/IRunnable.h>
#include <kiv/gps/MGPSService.h>

#include <vector>

namespace kiv::gps {

class MGPSServiceImpl : public system::IRunnable {
public:
    static MGPSServiceImpl* Create();

    ~MGPSServiceImpl() override = default;
    virtual unsigned int StartService() = 0;
    virtual unsigned int SetComPort(unsigned int port, unsigned int baudRate) = 0;
    virtual unsigned int SetDemoFile(const wchar_t* path) = 0;
    virtual unsigned int WriteGPSDataToLog(const wchar_t* setting) = 0;
    virtual unsigned int WriteCommand(const wchar_t* text) = 0;
    virtual unsigned int SetAnyTalker(bool on) = 0;
    virtual unsigned int GetRegMsg(const wchar_t* name, wchar_t* buffer) = 0;
    virtual unsigned int GetGPSPosition(MGPSPosition* position) = 0;
    virtual unsigned int GetGPSDateTime(MGPSDateTime* dateTime) = 0;
    virtual unsigned int GetSatellitesInView(std::vector<MSatellite*>& satellites) = 0;
    virtual unsigned int SetFixCallback(MGPSCallback callback) = 0;
    virtual unsigned int SetMovingCallback(MGPSCallback callback) = 0;
    virtual unsigned int InvokeFixCallback() = 0;
    virtual unsigned int InvokeMovingCallback() = 0;
};

/// Splits `source` at `token`: each piece that is followed by the token goes
/// into the next of `slots` slots of `width` characters (cut to width - 1
/// and terminated); a piece after the last token is not taken. Returns the
/// pieces taken.
int SplitStrByToken(const wchar_t* source, wchar_t token, wchar_t* destination, int width,
                    int slots);

}  // namespace kiv::gps
