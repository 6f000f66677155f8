// A server this process offers to others: a name, up to five commands with
// their handlers and up to five events. Published with
// MIpc::RegisterMyService; commands and events must be added before that,
// because later edits change only this object's own copy of the record.
//
// Handlers run on the thread that registered the server, while it pumps
// window messages (<kiv/ipc/MessageWindow.h>). A handler receives the
// command's payload (1,024 bytes, valid during the call) or null.
// Results: 0 success, 0xFFFFFFFF failure, 0xFF without an implementation.
// Copies share one implementation, which lives as long as any copy.
#pragma once

#include <kiv/ipc/IpcObject.h>
#include <kiv/platform/KivApi.h>

#include <vector>

namespace kiv::ipc {

class MIpcServerImpl;

class KIV_API MIpcServer {
public:
    MIpcServer();
    MIpcServer(const MIpcServer& other);
    MIpcServer& operator=(const MIpcServer& other);
    virtual ~MIpcServer();

    /// Names the server (at most 31 characters kept); fails for null or "".
    unsigned int SetServerName(const wchar_t* name);
    /// The server's name (valid until the next call on this object).
    const wchar_t* GetServerName();
    /// Adds (or overwrites) a command; its slot, or 0xFFFFFFFF when five
    /// exist or the name or handler is missing.
    unsigned int AddCommand(const wchar_t* name, int (*handler)(void*), const wchar_t* description);
    /// Removes a command. Only the last command is removed cleanly: removing
    /// another lowers the count and clears the last entry instead.
    unsigned int RemoveCommand(const wchar_t* name);
    /// Adds an event; its slot, 0 when five exist, 0xFFFFFFFF for a
    /// duplicate or a missing name.
    unsigned int AddEvent(const wchar_t* name, const wchar_t* description);
    /// Removes an event of a registered server (the last one cleanly, as
    /// for commands); does nothing before the server is registered.
    unsigned int RemoveEvent(const wchar_t* name);
    /// Delivers `size` bytes of `data` (at most 1,023 kept; none when null or
    /// 0) to every subscriber of the event, waiting for each. 0, or
    /// IPC_NOT_DELIVERED when a live subscriber could not be reached or no
    /// data slot came free; subscribers that ended are skipped.
    unsigned int SetEvent(const wchar_t* name, const void* data, unsigned int size);
    /// The commands, or events, of the server as registered (or as this
    /// object holds them when it is not registered).
    unsigned int GetCommandList(std::vector<_tagIpcObject>& list);
    unsigned int GetEventList(std::vector<_tagIpcObject>& list);
    /// The server's record (2,360 bytes).
    void* GetServerInfo();
    /// Replaces the server's record with 2,360 bytes; fails for null.
    unsigned int SetServerInfo(const void* record);

private:
    MIpcServerImpl* m_impl;
};

}  // namespace kiv::ipc
