// Joins pages to frames, and wraps messages into reports.
#include "simulator/KeyboardMcu.h"

#include <algorithm>

namespace simulator {

namespace {

enum ReportOffset : std::size_t { kAtId, kAtPageCount, kAtPageNumber, kAtLength };

}  // namespace

void KeyboardMcu::RefuseReport(const std::string& reason) {
    Refuse("report " + std::to_string(m_reportsSeen) + ": " + reason);
    m_frame.clear();
    m_pageCount = 0;
    m_pagesTaken = 0;
}

void KeyboardMcu::Output(const Bytes& report) {
    ++m_reportsSeen;
    if (report.size() != kReportSize) {
        return RefuseReport("it has " + std::to_string(report.size()) + " bytes, not 64");
    }
    if (report[kAtId] != kReportId) {
        return RefuseReport("its id is " + std::to_string(report[kAtId]) + ", not 5");
    }
    const unsigned pages = report[kAtPageCount];
    const unsigned number = report[kAtPageNumber];
    const std::size_t length = report[kAtLength];
    if (number == 1 && m_pagesTaken != 0) {
        RefuseReport("page 1 in the middle of a frame");  // it then begins the next one
    }
    if (number != m_pagesTaken + 1) {
        return RefuseReport("page " + std::to_string(number) + " where page " +
                            std::to_string(m_pagesTaken + 1) + " is due");
    }
    if (number > pages || (m_pagesTaken != 0 && pages != m_pageCount)) {
        return RefuseReport(
            "page " + std::to_string(number) + " of " + std::to_string(pages) +
            (m_pagesTaken != 0 ? " in a frame of " + std::to_string(m_pageCount) : ""));
    }
    if (length <= kReportHeadSize || length > kReportSize ||
        (number < pages && length != kReportSize)) {
        return RefuseReport("length byte " + std::to_string(length) + " in page " +
                            std::to_string(number) + " of " + std::to_string(pages));
    }
    const auto end = report.begin() + static_cast<std::ptrdiff_t>(length);
    if (std::any_of(end, report.end(), [](std::uint8_t byte) { return byte != 0; })) {
        ++m_dirtyTails;
    }
    m_frame.insert(m_frame.end(), report.begin() + kReportHeadSize, end);
    m_pageCount = pages;
    m_pagesTaken = number;
    if (number == pages) {
        TakeFrame(m_frame);
        m_frame.clear();
        m_pageCount = 0;
        m_pagesTaken = 0;
    }
}

Bytes KeyboardMcu::Wrap(std::uint8_t type, const Bytes& payload) const {
    Bytes report = {kReportId, 1, 1, 0, kFrameMark, type};
    report.insert(report.end(), payload.begin(), payload.end());
    report[kAtLength] = static_cast<std::uint8_t>(std::min(report.size(), kReportSize));
    report.resize(kReportSize);
    return report;
}

}  // namespace simulator
