// The table of meanings (meanings.txt) as it is compiled in: every line of the library's log with
// its meaning, and the recognition of such a line. Constant after its first use; any thread.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lab::explain {

/// What a line is in the story of a log.
enum class Role {
    kDetail,      ///< a step that the story leaves out
    kFailure,     ///< a part of a failure
    kRoot,        ///< a part that explains the failure better than the parts before it
    kUnusual,     ///< an item of its own
    kContentSet,  ///< the message's fields were taken over
    kCreateBegins,
    kCreateEnds,
    kCreateFails,
    kStartBegins,
    kStartTries,
    kStartUndone,
    kStartFails,
    kReady,
    kRoute,
    kDriverMissing,
    kNoChip,
    kChip,
    kChipLike,
    kChipSilent,  ///< a root, when the chip stays unknown
    kRadioFails,
    kWriteBegins,
    kWriteRefused,
    kNotRead,
    kWriteTries,
    kWriteCheck,
    kChipRetry,
    kWriteStored,
    kReadBack,
    kWriteStood,
    kWriteFails,
    kWriteFailed,
    kThreadsStart,
    kThreadsKnown,  ///< the thread that watches for leaves runs already
    kThreadsReady,
    kThreadsFail,
    kRefreshBegins,
    kRefreshFails,
    kRefreshEnds,
    kReadBegins,
    kReadEnds,
    kReadFails,
    kEmptyTag,
    kForeignContent,
    kRenewBegins,
    kRenewKnown,
    kRenewRefused,
    kRenewStored,
    kRenewEnds,
    kRenewOutdated,
    kRenewFails,
    kRenewFailed,
    kNumberReadFails,
    kVisitBegins,
    kVisitCounts,
    kVisitLeft,
    kVisitEnds,
    kVisitNobody,
    kLeaveStatus,
    kInterruptLost,
    kMcu,
    kWaits,
    kLoopFails,
    kLoopRefused,
    kLoopError,
    kLoopEnds,
    kConnectBegins,
    kConnectEnds,
    kConnectFails,
    kDisconnect,
    kDisconnectRefused,
    kNoAnswer,
};

/// The only kind of thread that writes a line; kAny for lines of several.
enum class ThreadKind : std::uint8_t { kAny, kHost, kNumber, kInterrupt, kDefer, kKeyboard, kBle };

struct Meaning {
    /// A part of the format: text, or one conversion.
    struct Piece {
        enum class Kind { kText, kDecimal, kHex, kByte, kRest };
        Kind kind = Kind::kText;
        std::string text;
    };

    /// A sentence for some error codes; without codes for all that no other one is for.
    struct Case {
        std::vector<std::uint32_t> codes;
        std::string text;
    };

    /// What the line means with this error code.
    std::string Text(std::optional<std::uint32_t> errorCode) const;

    std::string format;
    Role role = Role::kDetail;
    ThreadKind thread = ThreadKind::kAny;
    unsigned code = 0;      ///< the argument that is a system error code, from 1; 0: none
    bool isDevice = false;  ///< the code is a device's: the code's own advice comes first
    std::vector<Case> cases;
    std::string says;
    std::string means;
    std::string remedy;
    std::vector<Piece> pieces;  ///< the first one is a text; blanks at the format's end are cut
};

/// A line of the library inside a line of a log.
struct Match {
    const Meaning* meaning = nullptr;
    std::size_t begin = 0;  ///< where the library's text begins
    std::string_view text;
    std::string_view firstArgument;
    std::optional<std::uint32_t> code;  ///< the system error code
};

/// An error code of the system.
struct SystemCode {
    std::uint32_t code = 0;
    std::string text;
    std::string remedy;
};

class Meanings {
  public:
    static const Meanings& Get();

    /// Recognises the library's text at the end of `part`, which may have anything before it and
    /// blanks after it. The earliest place counts: one text can be the end of another.
    std::optional<Match> Find(std::string_view part) const;

    /// A system error code in plain words; empty when the table does not have it.
    std::string_view CodeText(std::uint32_t code) const;
    /// What to do about a device that reports this code; empty when it depends on the line.
    std::string_view CodeRemedy(std::uint32_t code) const;

    const std::vector<Meaning>& All() const { return m_all; }

  private:
    Meanings();
    void Index();

    static constexpr std::size_t kBuckets = 1024;
    static std::size_t Bucket(const char* four);
    const SystemCode* CodeOf(std::uint32_t code) const;
    std::vector<Meaning> m_all;
    std::vector<SystemCode> m_codes;
    std::array<std::vector<std::uint16_t>, kBuckets> m_byBeginning;
};

}  // namespace lab::explain
