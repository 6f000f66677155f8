#include <kiv/ipc/MIpcServer.h>

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

bool IsEmpty(const wchar_t* text) {
    return text == nullptr || text[0] == L'\0';
}

}  // namespace

using namespace detail;

// --- implementation ---------------------------------------------------------

MIpcServerImpl::MIpcServerImpl(const wchar_t* name, unsigned int window) {
    Bytes r(m_record);
    if (!IsEmpty(name)) {
        r.SetText(kNameAt, RecordText(name, kNameChars - 1), kNameChars - 1);
    }
    r.SetU32(kWindowAt, window);
}

unsigned int MIpcServerImpl::SetServerName(const wchar_t* name) {
    if (IsEmpty(name)) {
        return kFailed;
    }
    Bytes r(m_record);
    r.Clear(static_cast<std::int64_t>(kNameAt), kNameChars * 2);
    r.SetText(kNameAt, RecordText(name, kNameChars - 1), kNameChars - 1);
    return 0;
}

unsigned int MIpcServerImpl::AddCommand(const wchar_t* name, int (*handler)(void*),
                                        const wchar_t* description) {
    IpcDirectory* directory = IpcDirectory::Current();
    if (IsEmpty(name) || handler == nullptr || directory == nullptr) {
        return kFailed;
    }
    return static_cast<unsigned int>(directory->AddCommand(m_record, RecordText(name, 1024),
                                                           handler, RecordText(description, 1024)));
}

unsigned int MIpcServerImpl::RemoveCommand(const wchar_t* name) {
    IpcDirectory* directory = IpcDirectory::Current();
    if (!IsEmpty(name) && directory != nullptr) {
        directory->RemoveCommand(m_record, RecordText(name, 1024));
    }
    return 0;
}

unsigned int MIpcServerImpl::AddEvent(const wchar_t* name, const wchar_t* description) {
    IpcDirectory* directory = IpcDirectory::Current();
    if (IsEmpty(name) || directory == nullptr) {
        return kFailed;
    }
    return static_cast<unsigned int>(
        directory->AddEvent(m_record, RecordText(name, 1024), RecordText(description, 1024)));
}

unsigned int MIpcServerImpl::RemoveEvent(const wchar_t* name) {
    IpcDirectory* directory = IpcDirectory::Current();
    if (!IsEmpty(name) && directory != nullptr) {
        directory->RemoveEvent(m_record, RecordText(name, 1024));
    }
    return 0;
}

unsigned int MIpcServerImpl::SetEvent(const wchar_t* name, const void* data, unsigned int size) {
    IpcDirectory* directory = IpcDirectory::Current();
    if (IsEmpty(name) || directory == nullptr) {
        return 0;
    }
    const std::u16string event = RecordText(name, 1024);
    bool failed = false;
    bool ended = false;
    directory->LookUp(Bytes(m_record).Text(kNameAt, kNameChars), m_record);
    const Bytes r(m_record);
    const std::int32_t events = r.Count(kEventCountAt, kMaxEvents);
    for (std::int32_t e = 0; e < events; ++e) {
        if (!r.TextEquals(EventAt(e) + kEventNameAt, kNameChars, event)) {
            continue;
        }
        std::uint32_t payload = 0;
        if (data != nullptr && size != 0) {
            payload = directory->AwaitData(data, size);
            if (payload == 0) {
                failed = true;  // no subscriber gets the event without its payload
                continue;
            }
        }
        const std::int32_t subscribers = r.Count(EventAt(e) + kSubscriberCountAt, kMaxSubscribers);
        for (std::int32_t k = 0; k < subscribers; ++k) {
            const std::size_t at = SubscriberAt(e, k);
            std::intptr_t result = 0;
            const platform::SendOutcome outcome = platform::SendWindowMessageChecked(
                platform::WindowFromValue(r.U32(at + kSubscriberWindowAt)), kEventMessage,
                r.U32(at + kSubscriberIdAt),
                static_cast<std::intptr_t>(directory->MessageParam(payload)), &result);
            // A subscriber whose window is gone has ended: it is skipped, and
            // its subscription removed below.
            failed = failed || outcome == platform::SendOutcome::Failed;
            ended = ended || outcome == platform::SendOutcome::NoWindow;
        }
        directory->ReleaseData(payload);
    }
    if (ended) {
        directory->SweepDead();
    }
    return failed ? kNotDelivered : 0;
}

// --- facade -------------------------------------------------------------------

MIpcServer::MIpcServer() : m_impl(new (std::nothrow) MIpcServerImpl) {}

MIpcServer::MIpcServer(const MIpcServer& other) : m_impl(nullptr) {
    AssignImplementation(m_impl, other.m_impl);
}

MIpcServer& MIpcServer::operator=(const MIpcServer& other) {
    AssignImplementation(m_impl, other.m_impl);
    return *this;
}

MIpcServer::~MIpcServer() {
    DropImplementation(m_impl);
}

unsigned int MIpcServer::SetServerName(const wchar_t* name) {
    return m_impl != nullptr ? m_impl->SetServerName(name) : kNoImplementation;
}

const wchar_t* MIpcServer::GetServerName() {
    return m_impl != nullptr ? m_impl->Name() : nullptr;
}

unsigned int MIpcServer::AddCommand(const wchar_t* name, int (*handler)(void*),
                                    const wchar_t* description) {
    return m_impl != nullptr ? m_impl->AddCommand(name, handler, description) : kNoImplementation;
}

unsigned int MIpcServer::RemoveCommand(const wchar_t* name) {
    return m_impl != nullptr ? m_impl->RemoveCommand(name) : kNoImplementation;
}

unsigned int MIpcServer::AddEvent(const wchar_t* name, const wchar_t* description) {
    return m_impl != nullptr ? m_impl->AddEvent(name, description) : kNoImplementation;
}

unsigned int MIpcServer::RemoveEvent(const wchar_t* name) {
    return m_impl != nullptr ? m_impl->RemoveEvent(name) : kNoImplementation;
}

unsigned int MIpcServer::SetEvent(const wchar_t* name, const void* data, unsigned int size) {
    return m_impl != nullptr ? m_impl->SetEvent(name, data, size) : kNoImplementation;
}

unsigned int MIpcServer::GetCommandList(std::vector<_tagIpcObject>& list) {
    return m_impl != nullptr ? m_impl->List(true, list) : kNoImplementation;
}

unsigned int MIpcServer::GetEventList(std::vector<_tagIpcObject>& list) {
    return m_impl != nullptr ? m_impl->List(false, list) : kNoImplementation;
}

void* MIpcServer::GetServerInfo() {
    return m_impl != nullptr ? m_impl->Record().data() : nullptr;
}

unsigned int MIpcServer::SetServerInfo(const void* record) {
    if (m_impl == nullptr) {
        return kNoImplementation;
    }
    if (record == nullptr) {
        return kFailed;
    }
    std::memcpy(m_impl->Record().data(), record, kRecordSize);
    return 0;
}

}  // namespace kiv::ipc
