/// @file
/// A simulated PC with a tag, and phones that are held to it: for tests of a host where there is no
/// keyboard, no chip and no Windows. A test links tagport::simulator beside tagport::tagport. The
/// host is linked as it is, and finds the simulated devices as it would find real ones.
#pragma once

#include <tagport/simulator_export.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// Operations may be called from any thread unless they say otherwise. None holds a lock while it
/// calls the host. Bad arguments throw std::invalid_argument, calls at a wrong time
/// std::logic_error; nothing has changed then. Operations return at once unless they wait for time
/// to pass: Advance, WaitFor and Tap.
///
/// A process that has used the library or this header must not fork and go on in the child.
namespace tagport {

/// Spans of time, and times since the process began or since the scheduled clock was chosen.
using Time = std::chrono::microseconds;

/// A span of a thousand years or more, as Time::max(), has no end: a wait goes on until its
/// condition holds, a phone stays until it is taken away, or never comes. Advance and Tap, which
/// would never return, refuse it. (hours::max() and the like do not fit into a Time.)
constexpr Time kWithoutEnd = std::chrono::hours(24 * 365 * 1000);

// ---------------------------------------------------------------------------------------------
// The clock

/// Switches the process to the scheduled clock, at time 0. Without this call the run takes real
/// time, with real threads: on a busy machine a phone that comes right after WriteMessage can find
/// them not yet started, and is then reported several times (NfcListener.h).
///
/// On the scheduled clock one thread runs at a time, and the clock jumps to the next deadline when
/// all wait, so a day takes seconds. A generator draws the next thread; the same seed gives the
/// same run. There is one clock in a process, and no way back: call this once, first thing in main,
/// on the thread that will run the tests. Throws std::logic_error when the clock is in use already.
///
/// The clock knows the threads of the library and those of StartThread. Another thread may call Now
/// and LogRecorder::Lines only: any other call ends the process with a message. So a host under
/// test
///   - starts its threads with StartThread,
///   - takes its pauses with Advance,
///   - holds no lock over a call of the library while another thread waits for that lock.
///
/// A run that can make no progress ends the process with status 86 and a list of the threads and
/// what each waits for. So does a thread that calls neither the library nor this header for 20 s.
TAGPORT_SIMULATOR_EXPORT void UseScheduledClock(std::uint64_t seed);

/// The time on the process's clock.
TAGPORT_SIMULATOR_EXPORT Time Now();

/// Lets time pass: on the scheduled clock everything that falls into it happens, at once.
TAGPORT_SIMULATOR_EXPORT void Advance(Time time);

/// Waits until the condition holds, for `limit` at most; true when it held.
///
/// An empty function is refused. The condition is called on any thread, any number of times. It
/// must only look: it must not call the library, wait, change anything or throw. It may call Gone,
/// Reading, Lines and Live.
TAGPORT_SIMULATOR_EXPORT bool WaitFor(const std::function<bool()>& condition, Time limit);

/// Runs `body` on a new thread, which both clocks know. Nobody joins it, and an exception that
/// escapes ends the process. An empty function is refused. Throws std::system_error when there is
/// no thread left.
TAGPORT_SIMULATOR_EXPORT void StartThread(std::function<void()> body);

/// What is alive in the process, to find what a host leaves behind. Compare with the counts before
/// the host's start: a library that has been used keeps a few handles and one blocked thread.
struct LiveCounts {
    std::size_t handles = 0;   ///< of the library: events, threads, devices
    std::size_t threads = 0;   ///< of the library, of the Bluetooth client, and of StartThread
    std::size_t requests = 0;  ///< that a driver has not answered yet
};
/// The counts of this moment.
TAGPORT_SIMULATOR_EXPORT LiveCounts Live();

// ---------------------------------------------------------------------------------------------
// The log

/// One line of the library's log.
struct LogLine {
    Time time{};       ///< when it was written
    int level = 0;     ///< 3 warning, 4 error
    std::string text;  ///< as the library wrote it, with its origin in brackets at the end
};

/// Keeps what the library logs as long as it lives. One at a time: a second one throws
/// std::logic_error. It takes the place of the logger's sink, and leaves none; a host that sets a
/// sink of its own takes that place from it.
class TAGPORT_SIMULATOR_EXPORT LogRecorder {
  public:
    /// Begins to record.
    LogRecorder();
    /// Ends it, and forgets the lines.
    ~LogRecorder();
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;

    std::vector<LogLine> Lines() const;  ///< so far, in order
    void Clear();                        ///< forgets them
};

// ---------------------------------------------------------------------------------------------
// Phones

/// What a phone found on the tag.
struct PhoneReading {
    Time time{};          ///< when it had read, or first failed to
    bool read = false;    ///< true: a whole NDEF message, and what follows comes from it
    std::string problem;  ///< false: why

    std::string uri;                    ///< of the first URI record, with its scheme
    std::string type;                   ///< of the media-type record
    std::vector<std::uint8_t> payload;  ///< of the media-type record

    // Parts of the payload; empty when it does not have the 44 bytes of a PC's tag.
    std::vector<std::uint8_t> mac;     ///< 6 bytes
    std::vector<std::uint8_t> number;  ///< 32 bytes
    std::vector<std::uint8_t> model;   ///< 4 bytes
};

/// A phone that was brought to a PC. Copies are the same phone. It stays although the object goes.
class TAGPORT_SIMULATOR_EXPORT SimulatedPhone {
  public:
    /// True once it has left the tag.
    bool Gone() const;

    /// Nothing at first. Then what it has read, about 20 ms after it has come and 2 ms for each 16
    /// bytes; or its first failure, which a later success replaces.
    std::optional<PhoneReading> Reading() const;

    /// Takes it away at once, also when it has not come yet.
    void TakeAway();

  private:
    friend class SimulatedPc;
    struct Visit;
    explicit SimulatedPhone(std::shared_ptr<Visit> visit);
    std::shared_ptr<Visit> m_visit;
};

// ---------------------------------------------------------------------------------------------
// The PC

/// The ways to a tag, numbered as the listener gets them.
enum class Route {
    kI2c = 1,  ///< the I2C driver, with a tag chip in the PC
    kUsb = 2,  ///< the USB driver, with a tag chip in the keyboard
    kHid = 3,  ///< a HID keyboard
    kBle = 4,  ///< a Bluetooth keyboard
};

/// The address for NfcManager::BtConnect.
constexpr std::uint64_t kKeyboardAddress = 0x0000A1B2C3D4E5F6;

/// A phone that stays until TakeAway.
constexpr Time kUntilTakenAway = std::chrono::hours(24 * 365);

/// A PC with a device on each of its routes. The devices are there from the constructor to the
/// destructor, for the whole process: one PC at a time, a second one throws std::logic_error. The
/// host's managers may go before or after it.
///
/// The library keeps in mind which routes the process has had. Tests that run in one process use
/// the same routes; for others, give each test a process, as CMake's gtest_discover_tests does.
class TAGPORT_SIMULATOR_EXPORT SimulatedPc {
  public:
    /// All devices are plugged in, and their tags are empty. The tag of the I2C and USB routes is
    /// `chip`: fm11nt081, fm11nt082c, like-fm11n, fanli, like-fanli, or silent, which never
    /// answers. No route, a route that is given twice, an unknown chip, and a Fanli chip on the USB
    /// route, where no PC has one, are refused.
    explicit SimulatedPc(Route route = Route::kI2c, const std::string& chip = "fm11nt081");
    /// The same with several routes, the first one being the one that phones use.
    explicit SimulatedPc(const std::vector<Route>& routes, const std::string& chip = "fm11nt081");
    /// Removes the devices. Phones that are still there go on reading their tags.
    ~SimulatedPc();
    SimulatedPc(const SimulatedPc&) = delete;
    SimulatedPc& operator=(const SimulatedPc&) = delete;

    /// Holds a phone to the tag for so long, and waits until it has left. What the host hears of
    /// the leave comes later: see NfcListener.h.
    PhoneReading Tap(Time stay = std::chrono::milliseconds(800));

    /// Brings a phone to the tag of the first route, `after` so long, and returns at once.
    SimulatedPhone BringPhone(Time stay = kUntilTakenAway, Time after = {});
    /// The same to the tag of `route`. A route that the PC does not have is refused.
    SimulatedPhone BringPhone(Route route, Time stay = kUntilTakenAway, Time after = {});

    /// Pulls every device out, in the middle of whatever it does; a Bluetooth keyboard goes out of
    /// range. Tags keep their content. Does nothing when they are out already.
    void Unplug();
    /// Plugs every device in again. Does nothing when they are in already.
    void Plug();

    /// Lets requests of the drivers and calls of the Bluetooth client fail from now on, in place of
    /// the faults that were set before; an empty text ends them. A wrong text is refused with the
    /// entry and the reason.
    ///
    ///     write#3=refuse:1117, read#5=short:2, interrupt#1=never, connect#1
    ///
    /// KIND#WHICH=ACTION names requests of a driver: open, read, write, control, interrupt or any;
    /// the N-th of them from now, N-M or N+; refuse:CODE fails at once with a last-error code,
    /// fail:CODE later, short:BYTES succeeds with so many less, late:MS ends so much later, never
    /// stays pending until it is cancelled, gone removes the device. CALL#N names a call of the
    /// client on a PC with the Bluetooth route: connect, disconnect, subscribe, unsubscribe or
    /// write. A PC with that route alone has calls only.
    void SetFaults(const std::string& plan);

  private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace tagport
