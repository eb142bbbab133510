// trekcom._trekcom: the native half of the trekcom package. The Python half
// (trekcom/__init__.py) gives it its shape: open(), the records, the errors.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <fstream>
#include <sstream>

#include "files.h"
#include "receiver.h"
#include "records.h"

namespace py = pybind11;

namespace trekcom::python {
namespace {

// A record set from a file, as {kind: [records]}, in the order of the kinds.
py::dict Load(const std::string& path) {
    tool::Data data;
    std::string error;
    bool ok = false;
    {
        py::gil_scoped_release nogil;
        ok = tool::Read_Records(path, data, error);
    }
    if (!ok) Raise_Error("FileFormatError", error, std::nullopt, "");
    py::dict out;
    for (tool::Kind k : tool::kAll_Kinds)
        if (data.Has(k) || data.Count(k) > 0) out[py::str(std::string(tool::Kind_Name(k)))] = Kind_To_Python(data, k);
    return out;
}

// {kind: [records]} to a GPX file, or a JSON one when the name ends in .json.
void Save(const std::string& path, const py::dict& records, const std::string& source) {
    tool::Data data;
    data.source = source;
    for (const auto& [kind, list] : records) {
        const auto k = tool::Kind_Named(py::cast<std::string>(kind));
        if (!k) throw py::value_error("no record kind '" + py::cast<std::string>(kind) + "' in a file");
        Kind_From_Python(list, *k, data);
    }
    const bool json = path.size() >= 5 && path.compare(path.size() - 5, 5, ".json") == 0;
    const std::string text = json ? tool::Json_Text(data) : tool::Gpx_Text(data);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!(out << text) || !out.flush()) throw py::value_error("cannot write " + path);
}

}  // namespace
}  // namespace trekcom::python

PYBIND11_MODULE(_trekcom, m) {
    using trekcom::python::Receiver;
    using trekcom::python::Receiver_Options;
    m.doc() = "The native half of the trekcom package; use trekcom.open().";

    py::class_<Receiver>(m, "Receiver")
        .def(py::init([](const std::string& port, const std::string& sim_profile, const std::string& sim_data,
                         bool sim_empty, int timeout_ms, bool fast, const std::string& trace_file) {
                 return std::make_unique<Receiver>(Receiver_Options{.port = port,
                                                                    .sim_profile = sim_profile,
                                                                    .sim_data = sim_data,
                                                                    .sim_empty = sim_empty,
                                                                    .timeout_ms = timeout_ms,
                                                                    .fast = fast,
                                                                    .trace_file = trace_file});
             }),
             py::arg("port"), py::arg("sim_profile") = "current", py::arg("sim_data") = "", py::arg("sim_empty") = false,
             py::arg("timeout_ms") = 5000, py::arg("fast") = true, py::arg("trace_file") = "")
        .def("close", &Receiver::Close)
        .def_property_readonly("closed", &Receiver::Closed)
        .def_property_readonly("port", &Receiver::Port)
        .def("identify", &Receiver::Identify)
        .def("get", &Receiver::Get, py::arg("kind"))
        .def("put", &Receiver::Put, py::arg("kind"), py::arg("records"))
        .def("pvt_start", &Receiver::Pvt_Start)
        .def("next_pvt", &Receiver::Next_Pvt)
        .def("pvt_stop", &Receiver::Pvt_Stop)
        .def("satellites", &Receiver::Satellites)
        .def("position", &Receiver::Position)
        .def("date_time", &Receiver::Date_Time)
        .def("voltages", &Receiver::Voltages);

    m.def("load", &trekcom::python::Load, py::arg("path"));
    m.def("save", &trekcom::python::Save, py::arg("path"), py::arg("records"), py::arg("source") = "");
    m.def("kinds", [] {
        std::vector<std::string> names;
        for (auto k : trekcom::tool::kAll_Kinds) names.emplace_back(trekcom::tool::Kind_Name(k));
        return names;
    });
}
