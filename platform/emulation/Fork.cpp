// What is left of the layer in a forked child: a scheduler that refuses every call. The threads of
// the parent do not exist in the child, and the locks that they held are never unlocked there.
#include <pthread.h>

#include "platform/emulation/KernelState.h"

namespace emulation {

namespace {

[[noreturn]] void Refuse() {
    AbortWith("this process was forked from one that had used the layer, and cannot use it itself");
}

class Forked final : public Scheduler {
  public:
    explicit Forked(std::unique_ptr<Scheduler> parents) : m_parents(std::move(parents)) {}

    bool IsScheduled() const override { Refuse(); }
    Micros Now() const override { Refuse(); }
    std::uint64_t Steps() const override { Refuse(); }
    std::uint64_t Random() override { Refuse(); }
    Thread& Current() override { Refuse(); }
    void Enter() override { Refuse(); }
    void Leave() override { Refuse(); }
    void Changed() override { Refuse(); }
    void AllowSwitch(bool /*giveWay*/) override { Refuse(); }
    void AllowSwitchIfChanged() override { Refuse(); }
    bool Wait(const Predicate& /*predicate*/, Micros /*deadline*/,
              const WaitReason& /*reason*/) override {
        Refuse();
    }
    void TimerAdded() override { Refuse(); }
    void Launch(const std::shared_ptr<Thread>& /*thread*/,
                std::function<void()> /*body*/) override {
        Refuse();
    }
    void EndCurrent() override { Refuse(); }

  private:
    // Kept, since its locks may be held by threads that only the parent has.
    std::unique_ptr<Scheduler> m_parents;
};

void AfterForkInChild() {
    Kernel& kernel = TheKernel();
    if (IsUsed(kernel)) {
        kernel.scheduler = std::make_unique<Forked>(std::move(kernel.scheduler));
    }
}

}  // namespace

void WatchForks() {
    pthread_atfork(nullptr, nullptr, &AfterForkInChild);
}

}  // namespace emulation
