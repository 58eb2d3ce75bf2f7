// What the lines of a host's operations do to the story.
#include "lab/explain/ProcessStory.h"

#include <algorithm>
#include <utility>

#include "lab/explain/Advice.h"

namespace lab::explain {

bool ProcessStory::TakeStart(Lane& lane, const Entry& entry) {
    Operation& operation = lane.operation;
    const Meaning& meaning = *entry.match.meaning;
    switch (meaning.role) {
        case Role::kCreateBegins:
            Begin(lane, ItemKind::kCreate, entry);
            return true;
        case Role::kCreateEnds:
        case Role::kCreateFails: {
            if (!operation.isOpen || operation.kind != ItemKind::kCreate) {
                std::vector<Step> chain;
                chain.swap(lane.chain);  // of this Create: it has no first line
                Begin(lane, ItemKind::kCreate, entry);
                lane.chain.swap(chain);
            }
            const bool worked = meaning.role == Role::kCreateEnds;
            if (!worked) {
                AddStep(lane, entry);
            }
            Finish(lane, worked ? Outcome::kWorked : Outcome::kFailed, entry.micros);
            return true;
        }
        case Role::kStartBegins:
            Begin(lane, ItemKind::kStart, entry);
            return true;
        case Role::kStartTries:
            if (!operation.isOpen ||
                (operation.kind != ItemKind::kStart && operation.kind != ItemKind::kRefresh)) {
                Begin(lane, ItemKind::kStart, entry);
            }
            operation.tries += operation.kind == ItemKind::kStart ? 1 : 0;
            return true;
        case Role::kStartUndone:
            operation.isDone = false;
            return true;
        case Role::kStartFails:
            if (operation.isOpen) {
                Finish(lane, Outcome::kFailed, entry.micros);
            } else {
                AddStep(lane, entry);
                TellLoose(lane, ItemKind::kStart, meaning.means);
            }
            return true;
        case Role::kRoute:
            m_totals.route = meaning.says;
            m_totals.chip.clear();
            DropMissingDriver(lane);
            return true;
        case Role::kChip:
            m_totals.chip = meaning.says;
            break;
        case Role::kChipLike:
            if (lane.previous == Role::kChipSilent) {
                m_totals.chip = kSilent;
            } else if (lane.previous != Role::kChip) {
                m_totals.chip = meaning.says;
            }
            return true;
        case Role::kReady:
            break;
        default:
            return false;
    }
    // An unknown chip is not prepared: its name is the last line of a start.
    if (operation.isOpen && (meaning.role == Role::kReady || meaning.says != kFanli)) {
        operation.isDone = meaning.role == Role::kReady || m_totals.chip.front() == 'u';
        operation.doneAt = entry.micros;
    }
    return true;
}

bool ProcessStory::TakeWrite(Lane& lane, const Entry& entry) {
    Operation& operation = lane.operation;
    const bool isUpdate = operation.isOpen && operation.kind == ItemKind::kUpdate;
    const bool isWrite = operation.isOpen && operation.kind == ItemKind::kWrite;
    switch (entry.match.meaning->role) {
        case Role::kWriteBegins:
            Begin(lane, ItemKind::kWrite, entry);
            break;
        case Role::kWriteTries:
            if (!operation.isOpen || !HasImage(operation.kind)) {
                Begin(lane, ItemKind::kUpdate, entry);
            }
            ++operation.tries;
            break;
        case Role::kWriteCheck:
            if (entry.match.firstArgument == "0") {
                AddStep(lane, entry);
            }
            break;
        case Role::kChipRetry:
            ++(operation.isOpen && HasImage(operation.kind) ? operation.chipRetries
                                                            : lane.renewRetries);
            break;
        case Role::kNotRead:
            NotRead(lane);
            break;
        case Role::kWriteStored:
            operation.isStored = true;
            break;
        case Role::kWriteStood:
            if (isUpdate) {
                Finish(lane, Outcome::kWorked, entry.micros);
            }
            break;
        case Role::kWriteRefused:
        case Role::kWriteFails:
        case Role::kWriteFailed:
            AddStep(lane, entry);
            operation.hasFailed = true;
            if (isUpdate || (isWrite && entry.match.meaning->role == Role::kWriteRefused)) {
                Finish(lane, Outcome::kFailed, entry.micros);
            }
            break;
        case Role::kThreadsStart:
            lane.threadsStart = entry.line;
            lane.isWatchKnown = false;
            break;
        case Role::kThreadsKnown:
            lane.isWatchKnown = true;
            break;
        case Role::kThreadsFail:
            AddStep(lane, entry);
            operation.note = "The threads that report phones could not be started.";
            operation.hasFailed = true;
            [[fallthrough]];
        case Role::kThreadsReady:
            // It stays for the whole life of a process, or ends in the middle of a visit.
            if (std::exchange(m_hasThreads, true) && !lane.isWatchKnown) {
                LoseBefore(lane.threadsStart);
            }
            if (isWrite) {
                Finish(lane, operation.hasFailed ? Outcome::kFailed : Outcome::kWorked,
                       entry.micros);
            }
            break;
        default:
            return false;
    }
    return true;
}

void ProcessStory::NotRead(Lane& lane) {
    const bool isHarmless = std::any_of(lane.chain.begin(), lane.chain.end(), [](const Step& step) {
        return step.meaning->role == Role::kEmptyTag || step.meaning->role == Role::kForeignContent;
    });
    const Step* const cause = CauseOf(lane.chain);
    if (isHarmless || cause == nullptr) {
        lane.operation.note = "Before it the tag held no message of this library.";
    } else {
        lane.operation.note = "Before it the tag could not be read: " + Explained(*cause);
        lane.operation.isOdd = true;
    }
    lane.chain.clear();
}

bool ProcessStory::TakeReading(Lane& lane, const Entry& entry) {
    Operation& operation = lane.operation;
    const bool isRead = operation.isOpen && operation.kind == ItemKind::kRead;
    const bool isRefresh = operation.isOpen && operation.kind == ItemKind::kRefresh;
    const Meaning& meaning = *entry.match.meaning;
    switch (meaning.role) {
        case Role::kReadBegins:
            if (!operation.isOpen || !HasImage(operation.kind)) {
                Begin(lane, ItemKind::kRead, entry);
            }
            break;
        case Role::kReadEnds:
            if (isRead) {
                operation.isDone = true;
                operation.doneAt = entry.micros;
            }
            break;
        case Role::kContentSet:
            if (isRead && operation.isDone) {
                Close(lane);
            }
            break;
        case Role::kReadFails:
            AddStep(lane, entry);
            if (isRead) {
                Finish(lane, Outcome::kFailed, entry.micros);
            }
            break;
        case Role::kRefreshBegins:
            Begin(lane, ItemKind::kRefresh, entry);
            break;
        case Role::kRefreshEnds:
            operation.isDone |= isRefresh;
            operation.doneAt = entry.micros;
            break;
        case Role::kRefreshFails:
            AddStep(lane, entry);
            if (isRefresh) {
                Finish(lane, Outcome::kFailed, entry.micros);
            }
            break;
        case Role::kNumberReadFails:
            AddStep(lane, entry);
            // Without a write around it, it is an operation of its own.
            if (!lane.isRenewStored && (!operation.isOpen || !HasImage(operation.kind))) {
                Close(lane);
                TellLoose(lane, ItemKind::kReadNumber, "ReadRandNum failed.");
            }
            break;
        default:
            return false;
    }
    return true;
}

void ProcessStory::TakeOther(Lane& lane, const Entry& entry) {
    const Meaning& meaning = *entry.match.meaning;
    switch (meaning.role) {
        case Role::kNoChip:
            if (lane.previous != Role::kThreadsReady) {
                AddStep(lane, entry);
            }
            break;
        case Role::kRadioFails:
            AddStep(lane, entry);
            if (!lane.operation.isOpen) {
                TellLoose(lane, ItemKind::kFailure, meaning.means);
            }
            break;
        case Role::kConnectBegins:
            Begin(lane, ItemKind::kConnect, entry);
            break;
        case Role::kConnectEnds:
        case Role::kConnectFails: {
            const bool worked = meaning.role == Role::kConnectEnds;
            if (!lane.operation.isOpen || lane.operation.kind != ItemKind::kConnect) {
                Begin(lane, ItemKind::kConnect, entry);
            }
            if (worked) {
                m_totals.route = "Bluetooth";
                m_totals.chip.clear();
            } else {
                AddStep(lane, entry);
            }
            Finish(lane, worked ? Outcome::kWorked : Outcome::kFailed, entry.micros);
            break;
        }
        case Role::kDisconnect: {
            Close(lane);
            TellLoose(lane);
            Item item;
            item.kind = ItemKind::kDisconnect;
            item.line = entry.line;
            item.time = entry.time;
            item.thread = lane.thread;
            item.text = "BtDisconnect: the host disconnects the keyboard.";
            Tell(std::move(item));
            break;
        }
        case Role::kDisconnectRefused:
            AddStep(lane, entry);
            TellLoose(lane, ItemKind::kDisconnect, "BtDisconnect failed.");
            break;
        default:
            AddStep(lane, entry);
            break;
    }
}

}  // namespace lab::explain
