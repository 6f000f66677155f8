// Shared objects that someone else made first, under the names the library
// uses, are refused rather than shared.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "platform/InstanceLock.h"
#include "platform/MessageWindow.h"
#include "platform/Namespace.h"
#include "platform/SharedSection.h"
#include "platform/Waitable.h"

namespace {

using namespace kiv::platform;

constexpr uid_t kStranger = 4242;

// Creates the object `name` as `owner` with `mode` and `size` bytes.
void Plant(const std::string& name, uid_t owner, mode_t mode, off_t size) {
    const int fd = shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    ASSERT_GE(fd, 0) << name;
    ASSERT_EQ(fchmod(fd, mode), 0);
    ASSERT_EQ(ftruncate(fd, size), 0);
    ASSERT_EQ(fchown(fd, owner, owner), 0);
    close(fd);
}

bool AlwaysReady(const void*) {
    return true;
}
bool Initialise(void*) {
    return true;
}

TEST(SharedObjectOwner, ObjectsOfAnotherUserOpenToOthersOrOfAnotherSizeAreRefused) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to plant an object of another user";
    }
    Plant(SystemObjectName("section", L"stranger"), kStranger, 0600, 4096);
    Plant(SystemObjectName("section", L"open"), geteuid(), 0666, 4096);
    Plant(SystemObjectName("section", L"short"), geteuid(), 0600, 100);
    Plant(SystemObjectName("section", L"mine"), geteuid(), 0600, 4096);
    EXPECT_EQ(MapSharedSection(L"stranger", 4096, AlwaysReady, Initialise), nullptr);
    EXPECT_EQ(MapSharedSection(L"open", 4096, AlwaysReady, Initialise), nullptr);
    EXPECT_EQ(MapSharedSection(L"short", 4096, AlwaysReady, Initialise), nullptr);
    EXPECT_NE(MapSharedSection(L"mine", 4096, AlwaysReady, Initialise), nullptr);
    // A new one is created for this user alone.
    ASSERT_NE(MapSharedSection(L"new", 4096, AlwaysReady, Initialise), nullptr);
    struct stat st {};
    const int fd = shm_open(SystemObjectName("section", L"new").c_str(), O_RDONLY, 0);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(fstat(fd, &st), 0);
    close(fd);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    EXPECT_EQ(st.st_uid, geteuid());
}

TEST(SharedObjectOwner, TablesAndLocksPlantedByAnotherUserMakeTheirObjectsUnusable) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to plant an object of another user";
    }
    Plant(SystemObjectName("waitables", L"table"), kStranger, 0666, 0);
    Plant(SystemObjectName("windows", L"table"), kStranger, 0666, 0);
    Plant(SystemObjectName("lock", L"single"), kStranger, 0666, 0);
    EXPECT_FALSE(Event::Create(L"planted", EventReset::Manual, false).IsValid());
    EXPECT_EQ(CreateMessageWindow(
                  L"planted", L"",
                  [](HWND, unsigned, std::uintptr_t, std::intptr_t) -> std::intptr_t { return 0; }),
              nullptr);
    EXPECT_EQ(InstanceLock::TryAcquire(L"single"), nullptr);
}

}  // namespace
