#include <kiv/gps/MGPSConnect.h>
#include <kiv/system/MRegistry.h>

#include <cstdio>
#include <cwchar>
#include <new>

#include "foundation/Text.h"
#include "gps/MGPSConnectImplPosix.h"
#include "gps/MNmeaParserImpl.h"

namespace kiv::gps {

MGPSConnectImpl* MGPSConnectImpl::Create() {
    return new (std::nothrow) MGPSConnectImplPosix;
}

MGPSConnectImplPosix::MGPSConnectImplPosix() : m_commGPS(std::make_unique<MGPSCommPort>()) {}

MGPSConnectImplPosix::~MGPSConnectImplPosix() {
    EndProc();
}

void MGPSConnectImplPosix::SetComPort(unsigned int port, unsigned int baudRate) {
    m_comPort = port;
    m_baudRate = baudRate;
}

void MGPSConnectImplPosix::SetLogFile(const wchar_t* setting) {
    m_logFile.assign(setting != nullptr ? setting : L"",
                     setting != nullptr ? text::BoundedLength(setting, 259) : 0);
}

void MGPSConnectImplPosix::SetDemoFile(const wchar_t* path) {
    m_demoFile.assign(path != nullptr ? path : L"",
                      path != nullptr ? text::BoundedLength(path, 259) : 0);
    m_log.InformationPrintf(L"m_szDemoFile %ls", m_demoFile.c_str());
}

void MGPSConnectImplPosix::SetRegMsg(const wchar_t* name, const wchar_t* value) {
    system::MRegistry registry;
    if (registry.Open(HKEY_CURRENT_USER, kGpsKey, KEY_ALL_ACCESS) != 0) {
        registry.Create(HKEY_CURRENT_USER, kGpsKey, nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr);
    }
    registry.SetValue(value != nullptr ? value : L"", name);
}

std::wstring MGPSConnectImplPosix::FailureText() const {
    wchar_t text[128];
    std::swprintf(text, 128, L"The GPS service connect comport fail port=%d,baudrate=%d\n",
                  static_cast<int>(m_comPort), static_cast<int>(m_baudRate));
    return text;
}

bool MGPSConnectImplPosix::BeginProc() {
    if (!m_commGPS) {
        // Ended for good: a new connection is made instead.
        m_log.ErrorPrintf(L"MGPSConnectImplWin::BeginProc() connection already ended");
        return false;
    }
    unsigned int port = m_comPort;
    unsigned int baud = m_baudRate;
    if (!m_demoFile.empty()) {
        port = 0;
        baud = 0;
        m_commGPS->SetDemoFile(text::ToUtf8(m_demoFile));
    } else {
        m_commGPS->SetDemoFile(std::string());
    }
    m_commGPS->SetPort(port, baud);
    m_commGPS->SetLogFile(m_logFile);
    m_commGPS->SetAnyTalker(m_anyTalker);
    m_log.InformationPrintf(L"MGPSConnectImplWin::BeginProc() m_commGPS->dwComport %u", port);
    m_log.InformationPrintf(L"MGPSConnectImplWin::BeginProc() m_commGPS->dwBaudRate %u", baud);

    if (m_commGPS->IsRunning() && m_commGPS->Close() == 0) {
        m_log.ErrorPrintf(L"MGPSConnectImplWin::BeginProc() init fail 1");
        SetRegMsg(L"ERR_MSG", FailureText().c_str());
        SetRegMsg(L"INIT_FLAG", L"1");
        return false;
    }
    m_commGPS->Open();
    const bool running = m_commGPS->IsRunning();
    if (running) {
        m_log.InformationPrintf(L"MGPSConnectImplWin::BeginProc() success end");
        SetRegMsg(L"ERR_MSG", L"");
    } else {
        m_log.ErrorPrintf(L"MGPSConnectImplWin::BeginProc() openconnection fail 2");
        SetRegMsg(L"ERR_MSG", FailureText().c_str());
    }
    // "1" after every attempt: the client then reads "ERR_MSG" for the outcome.
    SetRegMsg(L"INIT_FLAG", L"1");
    return running;
}

void MGPSConnectImplPosix::EndProc() {
    if (m_commGPS) {
        m_commGPS->Close();
        m_commGPS.reset();
    }
}

void MGPSConnectImplPosix::WriteCommand(const wchar_t* command) {
    if (m_commGPS && command != nullptr) {
        m_commGPS->Write(text::ToUtf8(command));
    }
}

MGPSConnect::MGPSConnect() : m_impl(MGPSConnectImpl::Create()) {}

MGPSConnect::~MGPSConnect() {
    delete m_impl;
}

void MGPSConnect::SetComPort(unsigned int port, unsigned int baudRate) {
    if (m_impl != nullptr) {
        m_impl->SetComPort(port, baudRate);
    }
}

void MGPSConnect::SetLogFile(const wchar_t* setting) {
    if (m_impl != nullptr) {
        m_impl->SetLogFile(setting);
    }
}

void MGPSConnect::SetDemoFile(const wchar_t* path) {
    if (m_impl != nullptr) {
        m_impl->SetDemoFile(path);
    }
}

void MGPSConnect::SetAnyTalker(bool on) {
    if (m_impl != nullptr) {
        m_impl->SetAnyTalker(on);
    }
}

void MGPSConnect::SetRegMsg(const wchar_t* name, const wchar_t* value) {
    if (m_impl != nullptr) {
        m_impl->SetRegMsg(name, value);
    }
}

bool MGPSConnect::BeginProc() {
    return m_impl != nullptr && m_impl->BeginProc();
}

void MGPSConnect::EndProc() {
    if (m_impl != nullptr) {
        m_impl->EndProc();
    }
}

void MGPSConnect::WriteCommand(const wchar_t* command) {
    if (m_impl != nullptr) {
        m_impl->WriteCommand(command);
    }
}

}  // namespace kiv::gps
