// A keyboard's microcontroller on HID: frames in pages of 64-byte output reports, answers in
// 64-byte input reports. Plain.
#pragma once

#include "simulator/KeyboardTag.h"

namespace simulator {

constexpr std::size_t kReportSize = 64;
constexpr std::size_t kReportHeadSize = 4;
constexpr std::size_t kReportPayload = kReportSize - kReportHeadSize;
constexpr std::uint8_t kReportId = 5;

class KeyboardMcu : public KeyboardTag {
  public:
    /// One output report. Strict: whatever is wrong with head, page or length is refused with its
    /// reason, and the frame so far is dropped.
    void Output(const Bytes& report);

    // The back door.

    /// Reports whose bytes behind the payload weren't zero. They are taken all the same.
    std::size_t DirtyTails() const { return m_dirtyTails; }
    std::size_t ReportsSeen() const { return m_reportsSeen; }
    /// True while a frame has begun and not ended.
    bool MidFrame() const { return m_pagesTaken != 0; }

  protected:
    Bytes Wrap(std::uint8_t type, const Bytes& payload) const override;

  private:
    void Drop(const std::string& reason);

    Bytes m_frame;
    unsigned m_pageCount = 0;
    unsigned m_pagesTaken = 0;
    std::size_t m_dirtyTails = 0;
    std::size_t m_reportsSeen = 0;
};

}  // namespace simulator
