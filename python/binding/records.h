// Records between the control's C++ classes and the package's Python
// dataclasses (trekcom.records), field by field under the C++ names.
//
// Everything here runs with the GIL held. A Python value that does not fit
// its field (a str for a number, 300 for a byte) raises TypeError naming the
// class and the field; nothing is cut silently.
#pragma once

#include <pybind11/pybind11.h>

#include <string>
#include <vector>

#include <trekcom/trekcom.h>

#include "data.h"

namespace trekcom::python {

namespace py = pybind11;

// The records of one kind of a set, as a Python list: Waypoint, Route (with
// its Waypoints), Track (with its Points), Lap, FlightbookRecord, Almanac.
py::list Kind_To_Python(const tool::Data& data, tool::Kind kind);
// The list's records into the set, under the kind (which the set then names).
// Tracks may also be given as bare TrackPoints: they form one nameless track.
void Kind_From_Python(py::handle records, tool::Kind kind, tool::Data& data);

py::object Run_To_Python(const cRun& run);
py::list Courses_To_Python(const Collection<cCourse>& courses);
Collection<cCourse> Courses_From_Python(py::handle courses);

// Who the unit is, with the protocol and layout ids it announced.
py::object Product_To_Python(const cProduct_Data& product, const std::vector<std::string>& protocols);
// Lat and Lon in degrees, as in every other record.
py::object Pvt_To_Python(const cPvtData& pvt);
py::list Sats_To_Python(const Collection<cSat>& sats);
py::object Position_To_Python(const cPosition& position);
py::object Date_Time_To_Python(const cDate_Time& time);
py::object Voltages_To_Python(const cVoltages& voltages);

}  // namespace trekcom::python
