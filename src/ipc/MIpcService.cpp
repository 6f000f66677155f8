#include <kiv/ipc/MIpcService.h>

#include <cstring>
#include <new>

#include "ipc/IpcWindow.h"
#include "ipc/MIpcImpl.h"
#include "platform/MessageWindow.h"

namespace kiv::ipc {
namespace {

constexpr unsigned int kNoImplementation = 0xFF;
constexpr unsigned int kFailed = 0xFFFFFFFF;
constexpr unsigned int kNotDelivered = IPC_NOT_DELIVERED;

}  // namespace

using namespace detail;

// --- implementation ---------------------------------------------------------

unsigned int MIpcServiceImpl::SendCommand(const wchar_t* name, const void* data,
                                          unsigned int size) {
    IpcDirectory* directory = IpcDirectory::Current();
    if (directory == nullptr ||
        directory->LookUp(Bytes(m_record).Text(kNameAt, kNameChars), m_record) < 0) {
        return kFailed;
    }
    const std::u16string command = RecordText(name, 1024);
    const Bytes r(m_record);
    // All five entries are searched, whatever the command count says.
    std::int32_t c = 0;
    while (c < kMaxCommands && !r.TextEquals(CommandAt(c) + kCommandNameAt, kNameChars, command)) {
        ++c;
    }
    if (c == kMaxCommands) {
        return kFailed;
    }
    std::uint32_t payload = 0;
    if (size != 0) {
        payload = directory->AwaitData(data, size);
        if (payload == 0) {
            return kNotDelivered;  // never sent without the payload it was given
        }
    }
    std::intptr_t result = 0;
    const platform::SendOutcome outcome = platform::SendWindowMessageChecked(
        platform::WindowFromValue(r.U32(kWindowAt)), kCommandMessage,
        r.U32(CommandAt(c) + kCommandIdAt),
        static_cast<std::intptr_t>(directory->MessageParam(payload)), &result);
    directory->ReleaseData(payload);
    if (outcome == platform::SendOutcome::NoWindow) {
        directory->SweepDead();  // the server ended without unregistering
    }
    return outcome == platform::SendOutcome::Ran ? 0 : kNotDelivered;
}

int MIpcServiceImpl::SubscribeEvent(const wchar_t* name, int (*callback)(void*)) {
    if (name == nullptr || name[0] == L'\0' || callback == nullptr) {
        return -1;
    }
    IpcDirectory* directory = IpcDirectory::Current();
    if (directory == nullptr) {
        return -1;
    }
    const std::uint32_t window = EnsureIpcWindow();
    return directory->Subscribe(Bytes(m_record).Text(kNameAt, kNameChars), RecordText(name, 1024),
                                callback, window);
}

unsigned int MIpcServiceImpl::UnsubscribeEvent(int id) {
    if (IpcDirectory* directory = IpcDirectory::Current()) {
        directory->Unsubscribe(Bytes(m_record).Text(kNameAt, kNameChars), id);
    }
    return 0;
}

// --- facade -------------------------------------------------------------------

MIpcService::MIpcService() : m_impl(new (std::nothrow) MIpcServiceImpl) {}

MIpcService::MIpcService(const MIpcService& other) : m_impl(nullptr) {
    AssignImplementation(m_impl, other.m_impl);
}

MIpcService& MIpcService::operator=(const MIpcService& other) {
    AssignImplementation(m_impl, other.m_impl);
    return *this;
}

MIpcService::~MIpcService() {
    DropImplementation(m_impl);
}

const wchar_t* MIpcService::GetServiceName() {
    return m_impl != nullptr ? m_impl->Name() : nullptr;
}

unsigned int MIpcService::GetCommandList(std::vector<_tagIpcObject>& list) {
    return m_impl != nullptr ? m_impl->List(true, list) : kNoImplementation;
}

unsigned int MIpcService::GetEventList(std::vector<_tagIpcObject>& list) {
    return m_impl != nullptr ? m_impl->List(false, list) : kNoImplementation;
}

unsigned int MIpcService::SendCommand(const wchar_t* name, const void* data, unsigned int size,
                                      unsigned int /*timeout*/) {
    // The timeout is accepted and not used: the call waits for the handler.
    return m_impl != nullptr ? m_impl->SendCommand(name, data, size) : kNoImplementation;
}

int MIpcService::SubscribeEvent(const wchar_t* name, int (*callback)(void*)) {
    return m_impl != nullptr ? m_impl->SubscribeEvent(name, callback)
                             : static_cast<int>(kNoImplementation);
}

unsigned int MIpcService::UnsubscribeEvent(int id) {
    return m_impl != nullptr ? m_impl->UnsubscribeEvent(id) : kNoImplementation;
}

unsigned int MIpcService::SetServerInfo(const void* record) {
    if (m_impl == nullptr) {
        return kNoImplementation;
    }
    // Null is ignored, and still succeeds (the server's form fails).
    if (record != nullptr) {
        std::memcpy(m_impl->Record().data(), record, kRecordSize);
    }
    return 0;
}

}  // namespace kiv::ipc
