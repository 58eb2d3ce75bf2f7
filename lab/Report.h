// The report of a run: one HTML page that holds every object of the run, the script's steps and the
// states of the tag. The page itself is in lab/report. No devices and no platform layer here.
#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "lab/Player.h"
#include "lab/Recorder.h"

namespace lab {

/// Every function may be called on any thread, except Write. Times are milliseconds.
class Report {
  public:
    /// Throws WrongCall for a device or a pipe, and when it is clear that `file` cannot be written.
    /// Leaves no file.
    explicit Report(std::string file);

    /// One object of the run, as the JSON that --json prints.
    void AddObject(std::string_view object);
    /// A command of the script begins or ends.
    void AddStep(const Player::Step& step, double now);
    /// The tag's memory from the image's first byte on. `label` says what has happened before. A
    /// state that equals the one before it is left out, unless it is the `last` one.
    void AddTag(const std::string& memory, double now, const std::string& label, bool last = false);

    /// Writes the page, whole or not at all. `facts` describes the run; steps, stretches of the
    /// field and states of the tag are added to it. Throws WrongCall or SystemFailure.
    void Write(Json facts, double now);

  private:
    void AddField(const Command& command, double now);  // under m_mutex, as the next one
    void EndField(double at);

    std::string m_file;            // as the caller named it
    std::filesystem::path m_path;  // absolute
    std::mutex m_mutex;            // for what follows
    std::string m_objects;
    std::size_t m_count = 0;
    Json m_steps = Json::array();
    std::map<unsigned, std::vector<std::size_t>> m_running;  // by host: indexes into m_steps
    Json m_field = Json::array();  // stretches; "to" is null as long as it is open
    Json m_layouts = Json::array();
    Json m_states = Json::array();
    std::string m_lastMemory;
};

}  // namespace lab
