// Keeps what the library logs while a test runs, and notices error lines nobody expected.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace testing_support {

using Texts = std::vector<std::string>;

/// Texts in one line, for tables: "W 00 10, sleep 40, R 2".
std::string Joined(const Texts& texts);

/// Appends "LEVEL line" to the file that the environment's TAGPORT_LINES names, unless a line that
/// differs in numbers alone is there from this process or another child of its parent.
void NoteLine(int level, std::string line);

/// Is the logger's sink for its lifetime. Lines may come from any thread. Its end fails the test
/// for every error line that was not announced.
class LogRecorder {
  public:
    struct Line {
        int level = 0;
        std::string text;  ///< without the origin word in brackets
    };

    LogRecorder();
    ~LogRecorder();
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;

    /// Error lines that begin with one of `texts` are expected from here on, as many as come.
    template <class... Texts>
    void Announce(const Texts&... texts) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        (m_announced.emplace_back(texts), ...);
    }

    /// `action` is called with the text of each further line, on the line's own thread, which it
    /// may hold up. An empty one ends that.
    void OnLine(std::function<void(const std::string& text)> action);

    std::vector<Line> Lines() const;
    Texts TextsSoFar() const;
    std::size_t Count(const std::string& text) const;  ///< lines with exactly this text
    bool Has(const std::string& text) const { return Count(text) > 0; }
    void Clear();  ///< forgets the lines, once the error lines among them are checked

    /// Error lines so far that nobody announced; the check at the end is left to the caller.
    Texts TakeUnannounced();

    /// Every line so far, with its level before it: "W text" or "E text". Forgets the lines; the
    /// check is left to the caller.
    Texts TakeMarked();

  private:
    static void Take(int level, const std::wstring& line, void* context);

    mutable std::mutex m_mutex;  // over all; nothing is called with it held
    std::vector<Line> m_lines;
    Texts m_announced;
    Texts m_unannounced;
    std::function<void(const std::string& text)> m_onLine;
};

}  // namespace testing_support
