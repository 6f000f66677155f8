# Fails when the shared library exports internal names or misses public ones.
execute_process(COMMAND nm -D -C --defined-only ${LIBRARY}
  OUTPUT_VARIABLE symbols RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()
foreach(internal "kiv::text::" "kiv::platform::" "kiv::system::MFileImplPosix"
                 "kiv::system::memory::MGeneralAllocator"
                 "kiv::system::MThreadImplPosix" "kiv::system::concurrent::MMutexImpl"
                 "kiv::system::concurrent::MConcurObjectImpl"
                 "kiv::system::MRegistryImpl" "kiv::system::MShellImpl" "sqlite3_" "snd_mixer"
                 "kiv::ipc::detail::" "kiv::ipc::MIpcImpl" "kiv::ipc::MIpcServerImpl"
                 "kiv::ipc::MIpcServiceImpl" "kiv::ipc::MIpcRecordHolder"
                 "kiv::ipc::MIpcShared" "kiv::media::MPlayerState"
                 "kiv::media::MPlayerListenerDispatcher" "kiv::media::MDirectShow"
                 "kiv::media::LocatorExtension" "kiv::media::CreateBuiltInPlayer")
  string(FIND "${symbols}" "${internal}" at)
  if(NOT at EQUAL -1)
    message(FATAL_ERROR "internal symbols exported: ${internal}")
  endif()
endforeach()
foreach(public "kiv::MError::GetErrorMessage" "kiv::system::MByteBuffer::GetINT64"
               "kiv::system::MFile::MFile" "vtable for kiv::MError"
               "kiv::system::memory::MMemoryHeap::Allocate"
               "kiv::system::memory::MAllocatorManager::CreateAllocator"
               "vtable for kiv::system::memory::IMemoryAllocation"
               "kiv::system::concurrent::MMutex::Aquire" "kiv::system::concurrent::MLock::TryLock"
               "kiv::system::concurrent::MConcurObject::NotifyAll" "kiv::system::MThread::Start"
               "vtable for kiv::system::IRunnable" "vtable for kiv::system::MThread"
               "kiv::system::MRegistry::RecurseDeleteKey" "kiv::system::MRegistryKey::EnumValue"
               "kiv::system::MShell::EnableMute" "kiv::log::MDebugLog::ErrorPrintf"
               "vtable for kiv::log::MDebugLog"
               "kiv::ipc::MIpc::GetServiceList" "kiv::ipc::MIpcService::SendCommand"
               "vtable for kiv::ipc::MIpcServer" "kiv::ipc::PumpWindowMessages"
               "kiv::ipc::SendWindowMessage" "kiv::media::MPlayerManager::CreatePlayer"
               "kiv::media::MPlayerBase::AddPlayerListener" "vtable for kiv::media::MPlayerBase"
               "kiv::media::MPlayerBase::EndPlayback" "kiv::media::IPlayer::GetAudioVolume"
               "kiv::media::MPlayerEvent::STOPPED_END_OF_MEDIA"
               "kiv::media::IVideoControl::DEFAULT_NAME")
  string(FIND "${symbols}" "${public}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "public symbol not exported: ${public}")
  endif()
endforeach()
message(STATUS "exports checked")
