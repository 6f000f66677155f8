#include <kiv/ipc/MIpc.h>

#include <new>

#include "ipc/IpcWindow.h"
#include "ipc/MIpcImpl.h"
#include "platform/ProcessTable.h"

namespace kiv::ipc {
namespace {

constexpr unsigned int kNoImplementation = 0xFF;
constexpr unsigned int kFailed = 0xFFFFFFFF;

}  // namespace

using namespace detail;

MIpc::MIpc() : m_impl(new (std::nothrow) MIpcImpl) {}

MIpc::MIpc(const MIpc& other) : m_impl(nullptr) {
    AssignImplementation(m_impl, other.m_impl);
}

MIpc& MIpc::operator=(const MIpc& other) {
    AssignImplementation(m_impl, other.m_impl);
    return *this;
}

MIpc::~MIpc() {
    DropImplementation(m_impl);
}

unsigned int MIpc::GetServiceList(std::vector<MIpcService>& list) {
    if (m_impl == nullptr) {
        return kNoImplementation;
    }
    list.clear();
    IpcDirectory* directory = IpcDirectory::Current();
    if (directory == nullptr) {
        return 0;
    }
    for (const Record& record : directory->Records()) {
        MIpcService service;
        service.SetServerInfo(record.data());
        list.push_back(service);  // shares the implementation with the temporary
    }
    return static_cast<unsigned int>(list.size());
}

unsigned int MIpc::GetServer(const wchar_t* name, MIpcServer& server) {
    if (m_impl == nullptr) {
        return kNoImplementation;
    }
    IpcDirectory* directory = IpcDirectory::Current();
    Record record{};
    if (directory == nullptr || directory->LookUp(RecordText(name, 1024), record) < 0 ||
        Bytes(record).U32(kProcessIdAt) != platform::CurrentProcessId()) {
        return kFailed;
    }
    server.SetServerInfo(record.data());
    return 0;
}

unsigned int MIpc::GetService(const wchar_t* name, MIpcService& service) {
    if (m_impl == nullptr) {
        return kNoImplementation;
    }
    IpcDirectory* directory = IpcDirectory::Current();
    Record record{};
    // A server that ended without unregistering is swept out, not returned.
    if (directory == nullptr || directory->LookUp(RecordText(name, 1024), record, true) < 0) {
        return kFailed;
    }
    service.SetServerInfo(record.data());
    return 0;
}

unsigned int MIpc::RegisterMyService(MIpcServer& server) {
    if (m_impl == nullptr) {
        return kNoImplementation;
    }
    IpcDirectory* directory = IpcDirectory::Current();
    auto* record = static_cast<Record*>(server.GetServerInfo());
    if (directory == nullptr || record == nullptr) {
        return kFailed;
    }
    return directory->Register(*record, EnsureIpcWindow) >= 0 ? 0 : kFailed;
}

unsigned int MIpc::UnregisterMyService(const wchar_t* name) {
    if (m_impl == nullptr) {
        return kNoImplementation;
    }
    if (IpcDirectory* directory = IpcDirectory::Current();
        directory != nullptr && name != nullptr) {
        directory->Unregister(RecordText(name, 1024));
    }
    return 0;
}

}  // namespace kiv::ipc
