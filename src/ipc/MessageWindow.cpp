#include <kiv/ipc/MessageWindow.h>

#include <optional>
#include <string_view>

#include "platform/MessageWindow.h"

namespace kiv::ipc {
namespace {

std::optional<std::wstring_view> Criterion(const wchar_t* text) {
    return text == nullptr ? std::nullopt : std::optional<std::wstring_view>(text);
}

}  // namespace

HWND CreateMessageWindow(const wchar_t* className, const wchar_t* title,
                         WindowProcedure procedure) {
    return platform::CreateMessageWindow(className == nullptr ? L"" : className,
                                         title == nullptr ? L"" : title, procedure);
}

bool DestroyMessageWindow(HWND window) {
    return platform::DestroyMessageWindow(window);
}

bool PostWindowMessage(HWND window, unsigned int message, std::uintptr_t wParam,
                       std::intptr_t lParam) {
    return platform::PostWindowMessage(window, message, wParam, lParam);
}

std::intptr_t SendWindowMessage(HWND window, unsigned int message, std::uintptr_t wParam,
                                std::intptr_t lParam) {
    return platform::SendWindowMessage(window, message, wParam, lParam);
}

int GetWindowMessage(WindowMessage& message, int timeoutMs) {
    platform::WindowMessage m;
    const int rc = platform::GetWindowMessage(&m, timeoutMs);
    if (rc >= 0) {
        message = {m.window, m.message, m.wParam, m.lParam};
    }
    return rc;
}

std::intptr_t DispatchWindowMessage(const WindowMessage& message) {
    return platform::DispatchWindowMessage(
        {message.window, message.message, message.wParam, message.lParam});
}

bool PumpWindowMessages(int timeoutMs, int* exitCode) {
    return platform::PumpWindowMessages(timeoutMs, exitCode);
}

void PostQuitWindowMessage(int exitCode) {
    platform::PostQuitWindowMessage(exitCode);
}

HWND FindMessageWindow(const wchar_t* className, const wchar_t* title) {
    return platform::FindMessageWindow(Criterion(className), Criterion(title));
}

unsigned int GetWindowOwner(HWND window, unsigned int* processId) {
    std::uint32_t pid = 0;
    const std::uint32_t tid = platform::GetWindowOwner(window, &pid);
    if (tid != 0 && processId != nullptr) {
        *processId = pid;
    }
    return tid;
}

}  // namespace kiv::ipc
