// Runs and courses of fitness units in the files training software reads:
// Training Center (TCX), GPX with heart rate and cadence in the Garmin
// TrackPointExtension v1, or JSON. Runs are written one at a time as they
// arrive, so a long log never sits in memory as a document.
#pragma once

#include <ostream>
#include <string>

#include <trekcom/trekcom.h>

namespace trekcom::tool {

enum class Fitness_Format { tcx, gpx, json };

// The file's format from its name (.gpx, .json, else TCX), or JSON when asked.
Fitness_Format Fitness_Format_Of(const std::string& path, bool json);

class Run_Writer {
public:
    Run_Writer(std::ostream& out, Fitness_Format format);  // writes the head
    Run_Writer(const Run_Writer&) = delete;
    Run_Writer& operator=(const Run_Writer&) = delete;
    // One run: a TCX Activity (left out when it has no lap to carry it), a
    // GPX trk with a trkseg per lap, or a JSON object.
    void Run(const cRun& run);
    void End();  // writes the tail
    int Written() const { return written_; }

private:
    std::ostream& out_;
    Fitness_Format format_;
    int written_ = 0;
};

void Write_Courses(std::ostream& out, const Collection<cCourse>& courses, Fitness_Format format);

// Courses from a TCX file's Courses, or from a GPX file's tracks (one course
// each, one lap over the whole track). False with the reason when the file
// holds none or cannot be read.
bool Read_Courses(const std::string& path, Collection<cCourse>& out, std::string& error);

}  // namespace trekcom::tool
