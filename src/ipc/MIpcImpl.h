// The implementations behind MIpc, MIpcServer and MIpcService.
//
// Copies of a facade share one implementation, counted: the last copy to go
// deletes it through its virtual destructor. The server and the service each
// keep a private copy of a server record, which one thread at a time uses.
#pragma once

#include <kiv/ipc/IpcObject.h>

#include <string>
#include <vector>

#include "foundation/SharedImplementation.h"
#include "ipc/IpcDirectory.h"

namespace kiv::ipc {

/// The reference count every implementation carries; the last release
/// deletes through the virtual destructor.
class MIpcShared : public SharedImplementation<MIpcShared> {
public:
    virtual ~MIpcShared() = default;
};

class MIpcImpl : public MIpcShared {};

/// What servers and services share: the private record and its lists.
class MIpcRecordHolder : public MIpcShared {
public:
    detail::Record& Record() { return m_record; }
    /// The record's name as wide text, kept until the next call.
    const wchar_t* Name();
    /// Refreshes the record from the directory, then lists the first
    /// commandCount commands (or eventCount events).
    unsigned int List(bool commands, std::vector<_tagIpcObject>& list);

protected:
    detail::Record m_record{};
    std::wstring m_name;
};

class MIpcServerImpl : public MIpcRecordHolder {
public:
    /// A name (at most 31 characters kept when not null or empty) and a
    /// window value for the record; the public constructor gives neither.
    explicit MIpcServerImpl(const wchar_t* name = nullptr, unsigned int window = 0);

    unsigned int SetServerName(const wchar_t* name);
    unsigned int AddCommand(const wchar_t* name, int (*handler)(void*), const wchar_t* description);
    unsigned int RemoveCommand(const wchar_t* name);
    unsigned int AddEvent(const wchar_t* name, const wchar_t* description);
    unsigned int RemoveEvent(const wchar_t* name);
    unsigned int SetEvent(const wchar_t* name, const void* data, unsigned int size);
};

class MIpcServiceImpl : public MIpcRecordHolder {
public:
    unsigned int SendCommand(const wchar_t* name, const void* data, unsigned int size);
    int SubscribeEvent(const wchar_t* name, int (*callback)(void*));
    unsigned int UnsubscribeEvent(int id);
};

/// Text of the interface as the record's UTF-16, cut to `max` units
/// without splitting a surrogate pair; null gives "".
std::u16string RecordText(const wchar_t* text, std::size_t max);

}  // namespace kiv::ipc
