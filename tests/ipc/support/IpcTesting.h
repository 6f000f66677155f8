// Listings killed part way through a sweep of a full directory: 29 records
// of a dead server and one live server "live" (which the caller started),
// then `kivipc list` killed 1 to 9 ms after it started, round after round.
// After each, a fresh listing must end within 3 s (a bound that tells a
// wedged directory lock from a slow machine) and show only "live".
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <random>
#include <string>

#include "ipc/IpcDirectory.h"
#include "support/HelperProcess.h"
#include "support/KivTestEnvironment.h"

namespace kiv::test {

inline int CountOf(const std::string& text, const std::string& what) {
    int n = 0;
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
        ++n;
    }
    return n;
}

inline void KillListingsOfAFullDirectory(int rounds, unsigned seed) {
    using namespace kiv::ipc::detail;
    IpcDirectory* directory = IpcDirectory::Current();
    ASSERT_NE(directory, nullptr);
    // The record a killed server leaves behind, as the template of the dead.
    Record dead{};
    {
        HelperProcess ghost(HelperPath("kiv_ipc_child"),
                            {"server", "ghost", TempPath("ghost.bin")});
        ASSERT_TRUE(ghost.AwaitReady());
        ghost.Kill();
        ASSERT_EQ(ghost.Wait(), 128 + SIGKILL);
        ASSERT_GE(directory->LookUp(u"ghost", dead), 0);
    }
    std::mt19937 random(seed);
    const std::string kivipc = HelperPath("kivipc");
    const std::string listing = TempPath("listing.txt");
    for (int round = 0; round < rounds; ++round) {
        // Nobody else uses the directory between rounds: fill it in place.
        Bytes s = directory->Section();
        std::int32_t count = s.Count(kServerCountAt, kMaxServers);
        for (; count < kMaxServers; ++count) {
            Bytes(dead).Clear(static_cast<std::int64_t>(kNameAt), kNameChars * 2);
            Bytes(dead).SetText(kNameAt,
                                std::u16string{u'd', static_cast<char16_t>(u'0' + count / 10),
                                               static_cast<char16_t>(u'0' + count % 10)},
                                31);
            s.Copy(RecordAt(static_cast<std::size_t>(count)), dead.data(), kRecordSize);
        }
        s.SetI32(kServerCountAt, kMaxServers);

        HelperProcess killed(kivipc, {"list"}, TempPath("killed.txt"));
        usleep(static_cast<useconds_t>(1000 + random() % 8000));
        killed.Kill();
        killed.Wait();
        HelperProcess fresh(kivipc, {"list"}, listing);
        ASSERT_EQ(fresh.Wait(3000), 0) << "round " << round;
        const std::string out = ReadFileBytes(listing);
        ASSERT_EQ(CountOf(out, "(process "), 1) << out;
        ASSERT_NE(out.find("live (process "), std::string::npos) << out;
    }
}

}  // namespace kiv::test
