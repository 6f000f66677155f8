// The whole public interface of the framework library.
#pragma once

#include <kiv/platform/KivApi.h>
#include <kiv/platform/Win32Types.h>

#include <kiv/foundation/MByteBuffer.h>
#include <kiv/foundation/MDebugLog.h>
#include <kiv/foundation/MError.h>

#include <kiv/concurrent/IRunnable.h>
#include <kiv/concurrent/MConcurObject.h>
#include <kiv/concurrent/MLock.h>
#include <kiv/concurrent/MMutex.h>
#include <kiv/concurrent/MSemaphore.h>
#include <kiv/concurrent/MSynchronizedBlock.h>
#include <kiv/concurrent/MThread.h>

#include <kiv/files/IFileFilter.h>
#include <kiv/files/MFile.h>
#include <kiv/files/MFileExtensionFilter.h>
#include <kiv/files/MFileFilter.h>
#include <kiv/files/MFileManager.h>

#include <kiv/gps/MGPSConnect.h>
#include <kiv/gps/MGPSPosition.h>
#include <kiv/gps/MGPSService.h>
#include <kiv/gps/MNmeaParser.h>

#include <kiv/ipc/IpcObject.h>
#include <kiv/ipc/MIpc.h>
#include <kiv/ipc/MIpcServer.h>
#include <kiv/ipc/MIpcService.h>
#include <kiv/ipc/MessageWindow.h>

#include <kiv/media/IFormat.h>

#include <kiv/memory/IMemoryAllocation.h>
#include <kiv/memory/MAllocatorManager.h>
#include <kiv/memory/MMemoryChunk.h>
#include <kiv/memory/MMemoryHeap.h>
#include <kiv/memory/MMemoryPool.h>
#include <kiv/memory/MMemoryVariableSizedPool.h>

#include <kiv/system/MProcessManager.h>
#include <kiv/system/MRegistry.h>
#include <kiv/system/MRegistryKey.h>
#include <kiv/system/MShell.h>
