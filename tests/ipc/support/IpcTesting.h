// What the IPC tests that start helper processes share.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>

#include <string>
#include <vector>

#include "ipc/IpcDirectory.h"
#include "support/HelperProcess.h"
#include "support/KivTestEnvironment.h"

namespace kiv::test {

inline std::string IpcChild() {
    return HelperPath("kiv_ipc_child");
}

inline void KillAndReap(HelperProcess& victim) {
    victim.Kill();
    ASSERT_EQ(victim.Wait(), 128 + SIGKILL);
}

/// The texts a helper "server"'s "store" handler appended to `file`, in
/// order; "(none)" for a command without a payload.
inline std::vector<std::string> StoredTexts(const std::string& file) {
    const std::string bytes = ReadFileBytes(file);
    std::vector<std::string> texts;
    for (std::size_t at = 0; at < bytes.size(); at += bytes[at] == 0 ? 1 : 1025) {
        texts.emplace_back(bytes[at] == 0 ? "(none)" : bytes.c_str() + at + 1);
    }
    return texts;
}

/// True when this process can fill every data slot at once.
inline bool EverySlotFree() {
    auto* directory = ipc::detail::IpcDirectory::Current();
    std::vector<std::uint32_t> slots;
    for (int i = 0; i < ipc::detail::kSlotCount; ++i) {
        slots.push_back(directory->PutData("free?", 6));
    }
    bool all = true;
    for (std::uint32_t slot : slots) {
        all = all && slot != 0;
        directory->ReleaseData(slot);
    }
    return all;
}

}  // namespace kiv::test
