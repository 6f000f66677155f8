// The directory of IPC servers shared by every process of the namespace:
// publish a server of this process, find the servers of others.
// Results: 0 success, 0xFFFFFFFF failure, 0xFF without an implementation.
// Copies share one implementation, which lives as long as any copy.
#pragma once

#include <kiv/ipc/MIpcServer.h>
#include <kiv/ipc/MIpcService.h>
#include <kiv/platform/KivApi.h>

#include <vector>

namespace kiv::ipc {

class MIpcImpl;

class KIV_API MIpc {
public:
    MIpc();
    MIpc(const MIpc& other);
    MIpc& operator=(const MIpc& other);
    virtual ~MIpc();

    /// Replaces `list` with one service per registered server, in directory
    /// order; returns their number. Every element stays usable on its own.
    unsigned int GetServiceList(std::vector<MIpcService>& list);
    /// Fills `server` with the record of a server this process registered;
    /// fails for servers of other processes and unknown names.
    unsigned int GetServer(const wchar_t* name, MIpcServer& server);
    /// Fills `service` with the record of the named server.
    unsigned int GetService(const wchar_t* name, MIpcService& service);
    /// Publishes the server (at most 30 in the namespace, names unique). The
    /// calling thread becomes the one that runs this process's handlers.
    unsigned int RegisterMyService(MIpcServer& server);
    /// Removes the named server, whoever registered it; always 0.
    unsigned int UnregisterMyService(const wchar_t* name);

private:
    MIpcImpl* m_impl;
};

}  // namespace kiv::ipc
