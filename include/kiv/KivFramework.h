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

#include <kiv/files/MFile.h>

#include <kiv/gps/MGPSConnect.h>
#include <kiv/gps/MGPSPosition.h>
#include <kiv/gps/MGPSService.h>
#include <kiv/gps/MNmeaParser.h>

#include <kiv/ipc/IpcObject.h>
#include <kiv/ipc/MIpc.h>
#include <kiv/ipc/MIpcServer.h>
#include <kiv/ipc/MIpcService.h>
#include <kiv/ipc/MessageWindow.h>

#include <kiv/media/IBrightnessControl.h>
#include <kiv/media/IContrastControl.h>
#include <kiv/media/IControl.h>
#include <kiv/media/IControllable.h>
#include <kiv/media/IDataSource.h>
#include <kiv/media/IDriver.h>
#include <kiv/media/IFormat.h>
#include <kiv/media/IFrameControl.h>
#include <kiv/media/ILrcControl.h>
#include <kiv/media/IMediaSelectControl.h>
#include <kiv/media/IMetaDataControl.h>
#include <kiv/media/IPlayer.h>
#include <kiv/media/IPlayerListener.h>
#include <kiv/media/IRecordControl.h>
#include <kiv/media/ISaturationControl.h>
#include <kiv/media/IStopTimeControl.h>
#include <kiv/media/IVideoControl.h>
#include <kiv/media/IVolumeControl.h>
#include <kiv/media/MPlayerBase.h>
#include <kiv/media/MPlayerEvent.h>
#include <kiv/media/MPlayerManager.h>
#include <kiv/media/MSeekType.h>

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
