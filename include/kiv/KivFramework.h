// The whole public interface of the framework library.
#pragma once

#include <kiv/platform/KivApi.h>
#include <kiv/platform/Win32Types.h>

#include <kiv/foundation/MByteBuffer.h>
#include <kiv/foundation/MDebugLog.h>
#include <kiv/foundation/MError.h>

#include <kiv/files/MFile.h>

#include <kiv/system/MRegistry.h>
#include <kiv/system/MRegistryKey.h>
#include <kiv/system/MShell.h>
