// A keyboard's microcontroller on HID: frames in pages of 64-byte output reports, answers in
// 64-byte input reports. A model without threads.
#pragma once

#include "simulator/KeyboardTag.h"

namespace simulator {

constexpr std::size_t kReportSize = 64;
constexpr std::size_t kReportHeadSize = 4;
constexpr std::size_t kReportPayload = kReportSize - kReportHeadSize;
constexpr std::uint8_t kReportId = 5;

class KeyboardMcu : public KeyboardTag {
  public:
    /// Takes one output report. A wrong head, page or length is refused with its reason, and the
    /// frame so far is dropped.
    void Output(const Bytes& report);

    // The back door.

    /// Reports with bytes other than zero after the payload. They are accepted.
    std::size_t DirtyTails() const { return m_dirtyTails; }
    std::size_t ReportsSeen() const { return m_reportsSeen; }
    /// True after the first page of a frame and before its last one.
    bool MidFrame() const { return m_pagesTaken != 0; }

  protected:
    Bytes Wrap(std::uint8_t type, const Bytes& payload) const override;

  private:
    void RefuseReport(const std::string& reason);

    Bytes m_frame;
    unsigned m_pageCount = 0;
    unsigned m_pagesTaken = 0;
    std::size_t m_dirtyTails = 0;
    std::size_t m_reportsSeen = 0;
};

}  // namespace simulator
