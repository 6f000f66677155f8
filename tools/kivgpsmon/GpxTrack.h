// The received track as a GPX 1.1 file. The closing tags are rewritten
// after every point and the file is flushed, so the file is well-formed
// whenever no point is being written, even if the program is killed.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

#include "Reading.h"

namespace kivgpsmon {

class GpxTrack {
public:
    GpxTrack() = default;
    ~GpxTrack();
    GpxTrack(const GpxTrack&) = delete;
    GpxTrack& operator=(const GpxTrack&) = delete;

    /// Creates `path` (replacing it) with an empty track; false on failure.
    bool Open(const std::string& path);
    bool IsOpen() const { return m_file != nullptr; }
    /// Appends a track point for a valid fix with a time that differs from
    /// the previous point's; other readings are skipped. False only on a
    /// write error.
    bool Add(const Reading& reading);
    std::size_t Points() const { return m_points; }

private:
    bool WriteTail();

    std::FILE* m_file = nullptr;
    long m_tailAt = 0;  ///< where the closing tags start
    std::size_t m_points = 0;
    std::string m_lastTime;
};

}  // namespace kivgpsmon
