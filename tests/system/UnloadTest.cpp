// A host in a module that is unloaded while the library still works for it.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <tagport/NfcListener.h>
#include <tagport/Simulator.h>

namespace {

constexpr std::size_t kThreadsThatStay = 1;  // the deferred call thread

void IgnoreEvents(int /*event*/, const std::uint8_t (&/*number*/)[32], int /*route*/) {}

TEST(Unload, TheHostsModuleMayGoWhileItsNumberIsWritten) {
    tagport::UseScheduledClock(1);
    tagport::SimulatedPc pc;
    void* const module = dlopen(HOST_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(module, nullptr) << dlerror();
    const auto begin = reinterpret_cast<int (*)(NfcListener)>(dlsym(module, "Begin"));
    const auto renew = reinterpret_cast<int (*)()>(dlsym(module, "Renew"));
    const auto end = reinterpret_cast<void (*)()>(dlsym(module, "End"));
    ASSERT_EQ(begin(&IgnoreEvents), 0);
    ASSERT_EQ(renew(), 0);
    end();
    ASSERT_EQ(dlclose(module), 0);
    ASSERT_EQ(dlopen(HOST_PLUGIN, RTLD_NOW | RTLD_NOLOAD), nullptr) << "still there";
    ASSERT_GT(tagport::Live().threads, kThreadsThatStay) << "nothing to outlive the module";
    EXPECT_TRUE(tagport::WaitFor([] { return tagport::Live().threads <= kThreadsThatStay; },
                                 std::chrono::minutes(1)));
    const tagport::PhoneReading reading = pc.Tap();
    ASSERT_TRUE(reading.read) << reading.problem;
    EXPECT_EQ(reading.number.at(0), 2) << "the number was written";
}

}  // namespace
