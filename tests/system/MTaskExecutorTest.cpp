#include <kiv/system/MTaskExecutor.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/Waitable.h"
#include "support/ThreadState.h"
#include "system/MTaskExecutorImpl.h"

using kiv::system::process::ITask;
using kiv::system::process::MTaskExecutor;
using kiv::system::process::MTaskExecutorImpl;
using kiv::system::process::TaskRoutine;
using kiv::system::process::TaskThread;

namespace {

constexpr unsigned int kBadIndex = 0xFFFFFFFFu;
constexpr unsigned int kFreeEntry = 0xFFFFFFFEu;
constexpr unsigned int kNoThread = 0xFFFFFFFDu;

std::atomic<int> g_runs{0};

unsigned int CountRun(void* argument) {
    g_runs.fetch_add(1);
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(argument)) + 1;
}

unsigned int OtherRoutine(void*) {
    return 0;
}

// An ITask that records which of its operations were called, in order.
class RecordingTask final : public ITask {
public:
    std::vector<std::string> calls;

    unsigned int GetRoutine(TaskRoutine* r) override { return Note("routine", *r = &CountRun); }
    unsigned int GetArgument(unsigned int* a) override { return Note("argument", *a = 11); }
    unsigned int GetOption(unsigned int* o) override { return Note("option", *o = 22); }
    unsigned int GetDelay(unsigned int* d) override { return Note("delay", *d = 33); }
    unsigned int GetStartNow(unsigned int* n) override { return Note("startNow", *n = 1); }
    unsigned int Reserved1() override { return Note("reserved1", 0); }
    unsigned int Reserved2() override { return Note("reserved2", 0); }

private:
    template <typename T>
    unsigned int Note(const char* call, T) {
        calls.push_back(call);
        return 0;
    }
};

struct EntryView {
    TaskRoutine routine;
    unsigned int argument, delay, option, fromTask;
    bool operator==(const EntryView&) const = default;
};

EntryView View(MTaskExecutorImpl& impl, unsigned int index) {
    auto& e = impl.EntryForTesting(index);
    return {e.routine.load(), e.argument.load(), e.delay.load(), e.option.load(),
            e.fromTask.load()};
}

class MTaskExecutorTest : public ::testing::Test {
protected:
    void SetUp() override { g_runs = 0; }
};

}  // namespace

TEST_F(MTaskExecutorTest, EveryAddTaskTakesEntryZeroAndOverwritesTheTaskBefore) {
    MTaskExecutorImpl impl;
    unsigned int index = 99;
    EXPECT_EQ(impl.AddTask(nullptr, 1, index, 0, 0, 0), kFreeEntry);
    EXPECT_EQ(impl.AddTask(static_cast<ITask*>(nullptr), index), kFreeEntry);
    EXPECT_EQ(index, 99u);

    ASSERT_EQ(impl.AddTask(&CountRun, 5, index, 100, 7, 0), 0u);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(View(impl, 0), (EntryView{&CountRun, 5, 100, 7, 0}));

    index = 99;
    ASSERT_EQ(impl.AddTask(&OtherRoutine, 6, index, 0, 8, 0), 0u);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(View(impl, 0), (EntryView{&OtherRoutine, 6, 0, 8, 0}));
    EXPECT_EQ(View(impl, 1), (EntryView{nullptr, 0, 0, 0, 0}));

    // An ITask is asked for routine, argument, delay, option, then start-now.
    RecordingTask task;
    index = 99;
    ASSERT_EQ(impl.AddTask(&task, index), 0u);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(task.calls,
              (std::vector<std::string>{"routine", "argument", "delay", "option", "startNow"}));
    EXPECT_EQ(View(impl, 0), (EntryView{&CountRun, 11, 33, 22, 1}));
}

TEST_F(MTaskExecutorTest, AddedTasksAreNeverStartedNowOrAfterTheirDelay) {
    MTaskExecutor executor;
    unsigned int index = 0;
    RecordingTask task;  // asks to start at once
    ASSERT_EQ(executor.AddTask(&task, index), 0u);
    ASSERT_EQ(executor.AddTask(&CountRun, 0, index, 1, 0, 1), 0u);
    EXPECT_EQ(executor.StartTask(index), kNoThread);

    // Many scans of the service thread pass; none starts the delayed task.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(g_runs.load(), 0);
    unsigned int status = 0xDEAD;
    EXPECT_EQ(executor.GetTaskStatus(index, status), 0u);
    EXPECT_EQ(status, 0u);
}

TEST_F(MTaskExecutorTest, SixteenEntriesWhateverThePoolSizeAndAnswersOfUsedFreeAndOutsideOnes) {
    MTaskExecutor executor;
    EXPECT_EQ(executor.SetThreadPoolSize(257), kBadIndex);
    EXPECT_EQ(executor.SetThreadPoolSize(8), 0u);
    EXPECT_EQ(executor.SetThreadPoolSize(32), 0u);
    EXPECT_EQ(executor.StartTask(15), kFreeEntry);
    EXPECT_EQ(executor.StartTask(16), kBadIndex);

    MTaskExecutor copy(executor);  // copies share one table
    unsigned int index = 0;
    ASSERT_EQ(executor.AddTask(&CountRun, 3, index, 0, 0, 0), 0u);

    unsigned int value = 0xDEAD;
    unsigned int status = 0xDEAD;
    EXPECT_EQ(copy.StopTask(index), 0u);
    EXPECT_EQ(copy.GetTaskReturnValue(index, value), 0u);
    EXPECT_EQ(value, 0u);
    EXPECT_EQ(copy.GetTaskStatus(index, status), 0u);
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(copy.RemoveTask(index), 0u);

    value = status = 0xDEAD;
    EXPECT_EQ(executor.RemoveTask(index), kFreeEntry);
    EXPECT_EQ(executor.StopTask(index), kFreeEntry);
    EXPECT_EQ(executor.StartTask(index), kFreeEntry);
    EXPECT_EQ(executor.GetTaskReturnValue(index, value), kFreeEntry);
    EXPECT_EQ(executor.GetTaskStatus(index, status), kFreeEntry);
    for (unsigned int outside : {16u, 31u, 0xFFFFFFFFu}) {
        EXPECT_EQ(executor.StopTask(outside), kBadIndex);
        EXPECT_EQ(executor.RemoveTask(outside), kBadIndex);
        EXPECT_EQ(executor.GetTaskReturnValue(outside, value), kBadIndex);
        EXPECT_EQ(executor.GetTaskStatus(outside, status), kBadIndex);
    }
    EXPECT_EQ(value, 0xDEADu);
    EXPECT_EQ(status, 0xDEADu);
}

// No operation gives a task a thread before its first start; a table entry
// that has one anyway (set here directly) is started, and keeps its thread.
TEST_F(MTaskExecutorTest, ATaskThatHasAThreadIsRunAndItsResultBecomesTheExitCode) {
    MTaskExecutorImpl impl;
    unsigned int index = 0;
    ASSERT_EQ(impl.AddTask(&CountRun, 41, index, 0, 0, 0), 0u);
    TaskThread earlier;
    auto& thread = impl.EntryForTesting(index).thread;
    thread = &earlier;
    ASSERT_EQ(impl.StartTask(index), 0u);
    TaskThread* started = thread.load();
    ASSERT_NE(started, &earlier);
    std::uint32_t code = 259;
    kiv::test::Eventually([&] { return !TaskThread::GetExitCode(started, code) || code != 259; });
    EXPECT_EQ(code, 42u);

    // The stop compares the query's success with 259: nothing is cleared.
    EXPECT_EQ(impl.StopTask(index), 0u);
    EXPECT_EQ(thread.load(), started);
    unsigned int value = 0xDEAD;
    EXPECT_EQ(impl.GetTaskReturnValue(index, value), kNoThread);
    EXPECT_EQ(impl.GetTaskStatus(index, value), kNoThread);
    EXPECT_EQ(value, 0xDEADu);
}

TEST_F(MTaskExecutorTest, TheNamedExitEventEndsOneServiceThreadAndDestructionDoesNotSetIt) {
    const int base = kiv::test::BaselineThreadCount();
    std::optional<MTaskExecutor> first(std::in_place);
    MTaskExecutor second;
    ASSERT_EQ(kiv::test::ThreadCount(), base + 2);

    first.reset();  // stops its own thread only
    ASSERT_TRUE(kiv::test::WaitForThreadCount(base + 1));

    auto exit = kiv::platform::Event::Open(L"KIV_EXECUTOR_EXIT_EVENT");
    ASSERT_TRUE(exit.IsValid());
    ASSERT_TRUE(exit.Set());
    EXPECT_TRUE(kiv::test::WaitForThreadCount(base));
    // The table still answers without its service thread.
    unsigned int index = 9;
    EXPECT_EQ(second.AddTask(&CountRun, 0, index, 0, 0, 0), 0u);
    EXPECT_EQ(index, 0u);
}

TEST_F(MTaskExecutorTest, AThousandExecutorsCreatedAndDestroyedLeaveNoThread) {
    const int rounds = kiv::test::kUnderSanitizer ? 200 : 1000;
    const int base = kiv::test::BaselineThreadCount();
    for (int i = 0; i < rounds; ++i) {
        MTaskExecutor executor;
        unsigned int index = 0;
        ASSERT_EQ(executor.AddTask(&CountRun, 0, index, 1, 0, 0), 0u);
    }
    EXPECT_EQ(kiv::test::ThreadCount(), base);
}

TEST_F(MTaskExecutorTest, SharedExecutorUsedFromSeveralThreadsAtOnce) {
    MTaskExecutor executor;
    std::vector<std::thread> users;
    for (unsigned int t = 0; t < 4; ++t) {
        users.emplace_back([copy = executor, t]() mutable {
            for (unsigned int i = 0, index = 0, value = 0; i < 500; ++i) {
                copy.AddTask(t % 2 == 0 ? &CountRun : &OtherRoutine, i, index, i % 3, 0, 1);
                copy.GetTaskStatus(index, value);
                copy.RemoveTask(index);
                copy.SetThreadPoolSize(32);
            }
        });
    }
    for (auto& u : users) {
        u.join();
    }
    EXPECT_EQ(g_runs.load(), 0);
}
