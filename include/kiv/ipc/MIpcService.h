// A server of some process as a client sees it: found with MIpc::GetService
// or MIpc::GetServiceList, sent commands and subscribed to.
//
// Event callbacks run on the thread that subscribed, while it pumps window
// messages (<kiv/ipc/MessageWindow.h>); a callback receives the event's
// payload (1,024 bytes, valid during the call) or null.
// Results: 0 success, 0xFFFFFFFF failure, IPC_NOT_DELIVERED for a command
// or event that did not arrive, 0xFF without an implementation.
// Copies share one implementation, which lives as long as any copy.
#pragma once

#include <kiv/ipc/IpcObject.h>
#include <kiv/platform/KivApi.h>

#include <vector>

namespace kiv::ipc {

class MIpcServiceImpl;

class KIV_API MIpcService {
public:
    MIpcService();
    MIpcService(const MIpcService& other);
    MIpcService& operator=(const MIpcService& other);
    virtual ~MIpcService();

    /// The server's name (valid until the next call on this object).
    const wchar_t* GetServiceName();
    /// The server's commands, or events, as registered.
    unsigned int GetCommandList(std::vector<_tagIpcObject>& list);
    unsigned int GetEventList(std::vector<_tagIpcObject>& list);
    /// Runs the command in the server's process with `size` bytes of `data`
    /// (at most 1,023 kept) and returns once its handler ran: 0;
    /// 0xFFFFFFFF when the server or command is unknown; IPC_NOT_DELIVERED
    /// when the server ended before running it or the payload found no free
    /// slot in time.
    /// `timeout` is not used, and the handler's result does not come back.
    unsigned int SendCommand(const wchar_t* name, const void* data, unsigned int size,
                             unsigned int timeout);
    /// Subscribes `callback` to the event; the subscriber id (positive), the
    /// earlier id when this callback already subscribed, or -1.
    int SubscribeEvent(const wchar_t* name, int (*callback)(void*));
    /// Ends a subscription; always 0.
    unsigned int UnsubscribeEvent(int id);
    /// Replaces the service's record with 2,360 bytes; null does nothing.
    unsigned int SetServerInfo(const void* record);

private:
    MIpcServiceImpl* m_impl;
};

}  // namespace kiv::ipc
