#include <kiv/system/MShell.h>

#include <new>

#include "system/MShellImpl.h"

namespace kiv::system {
namespace {

constexpr unsigned int kNoImplementation = 0xFF;

}  // namespace

MShell::MShell() : m_impl(new (std::nothrow) MShellImpl) {}

MShell::MShell(const MShell& other) : m_impl(ShareImplementation(other.m_impl)) {}

MShell& MShell::operator=(const MShell& other) {
    AssignImplementation(m_impl, other.m_impl);
    return *this;
}

MShell::~MShell() {
    DropImplementation(m_impl);
}

#define KIV_SHELL_FORWARD(call) return m_impl != nullptr ? m_impl->call : kNoImplementation

unsigned int MShell::SetCurrentLanguage(unsigned int lcid) {
    KIV_SHELL_FORWARD(SetCurrentLanguage(lcid));
}
unsigned int MShell::GetCurrentLanguage(unsigned int& lcid) {
    KIV_SHELL_FORWARD(GetCurrentLanguage(lcid));
}
unsigned int MShell::GetLanguageString(unsigned int lcid, wchar_t* buffer, unsigned int size) {
    KIV_SHELL_FORWARD(GetLanguageString(lcid, buffer, size));
}
unsigned int MShell::SetDateTime(const _MSYSTEMTIME* time) {
    KIV_SHELL_FORWARD(SetDateTime(time));
}
unsigned int MShell::GetDateTime(_MSYSTEMTIME* utc, _MSYSTEMTIME* local) {
    KIV_SHELL_FORWARD(GetDateTime(utc, local));
}
unsigned int MShell::SetMaxBrightnessLevel(unsigned int level) {
    KIV_SHELL_FORWARD(SetMaxBrightnessLevel(level));
}
unsigned int MShell::GetMaxBrightnessLevel(unsigned int& level) {
    KIV_SHELL_FORWARD(GetMaxBrightnessLevel(level));
}
unsigned int MShell::SetMainBrightnessLevel(unsigned int level) {
    KIV_SHELL_FORWARD(SetMainBrightnessLevel(level));
}
unsigned int MShell::GetMainBrightnessLevel(unsigned int& level) {
    KIV_SHELL_FORWARD(GetMainBrightnessLevel(level));
}
unsigned int MShell::SetMaxVolumeLevel(unsigned int level) {
    KIV_SHELL_FORWARD(SetMaxVolumeLevel(level));
}
unsigned int MShell::GetMaxVolumeLevel(unsigned int& level) {
    KIV_SHELL_FORWARD(GetMaxVolumeLevel(level));
}
unsigned int MShell::SetMainVolumeLevel(unsigned int level) {
    KIV_SHELL_FORWARD(SetMainVolumeLevel(level));
}
unsigned int MShell::GetMainVolumeLevel(unsigned int& level) {
    KIV_SHELL_FORWARD(GetMainVolumeLevel(level));
}
unsigned int MShell::EnableMute(unsigned char mute) {
    KIV_SHELL_FORWARD(EnableMute(mute));
}
unsigned int MShell::GetBatteryLifePercent(unsigned int& percent) {
    KIV_SHELL_FORWARD(GetBatteryLifePercent(percent));
}
unsigned int MShell::GetChargingStatus(int& status) {
    KIV_SHELL_FORWARD(GetChargingStatus(status));
}

#undef KIV_SHELL_FORWARD

}  // namespace kiv::system
