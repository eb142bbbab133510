#include "records.h"

#include <pybind11/stl.h>

#include <numbers>
#include <type_traits>

namespace trekcom::python {

namespace {

// Each record class's fields, named as both languages name them. The visitor
// gets the name and the member; R is the record, const or not, so one list
// serves both directions.
template <class T>
struct Record;

#define TREKCOM_FIELD(name) v(#name, r.name)

template <>
struct Record<cWaypoint> {
    static constexpr const char* kClass = "Waypoint";
    template <class R, class V>
    static void Fields(R& r, V&& v) {
        TREKCOM_FIELD(Ident), TREKCOM_FIELD(Lat), TREKCOM_FIELD(Lon), TREKCOM_FIELD(Cmnt), TREKCOM_FIELD(Dspl);
        TREKCOM_FIELD(Smbl), TREKCOM_FIELD(Unused1), TREKCOM_FIELD(Dist), TREKCOM_FIELD(Prox_Index);
        TREKCOM_FIELD(Color), TREKCOM_FIELD(Alt), TREKCOM_FIELD(Dpth), TREKCOM_FIELD(Wpt_Class);
        TREKCOM_FIELD(Sub_Class), TREKCOM_FIELD(Attrib), TREKCOM_FIELD(Link), TREKCOM_FIELD(State);
        TREKCOM_FIELD(Country), TREKCOM_FIELD(City), TREKCOM_FIELD(Address), TREKCOM_FIELD(Facility);
        TREKCOM_FIELD(Cross_Road), TREKCOM_FIELD(Unused2), TREKCOM_FIELD(Ete), TREKCOM_FIELD(Dtype);
        TREKCOM_FIELD(Temp), TREKCOM_FIELD(Time), TREKCOM_FIELD(Time_Seconds), TREKCOM_FIELD(Wpt_Category);
    }
};

// The header's fields; its Waypoints travel beside it.
template <>
struct Record<cRoute> {
    static constexpr const char* kClass = "Route";
    template <class R, class V>
    static void Fields(R& r, V&& v) {
        TREKCOM_FIELD(Number), TREKCOM_FIELD(Ident), TREKCOM_FIELD(Cmnt), TREKCOM_FIELD(Link_Class);
        TREKCOM_FIELD(Link_Sub_Class), TREKCOM_FIELD(Link_Ident);
    }
};

// A track point; a track's header is the same record (Record<cTrack> with the class "Track").
template <>
struct Record<cTrack> {
    static constexpr const char* kClass = "TrackPoint";
    template <class R, class V>
    static void Fields(R& r, V&& v) {
        TREKCOM_FIELD(Lat), TREKCOM_FIELD(Lon), TREKCOM_FIELD(Time), TREKCOM_FIELD(Ident), TREKCOM_FIELD(Datum);
        TREKCOM_FIELD(Seconds), TREKCOM_FIELD(Alt), TREKCOM_FIELD(Dpth), TREKCOM_FIELD(Temp), TREKCOM_FIELD(Index);
        TREKCOM_FIELD(New_Segment), TREKCOM_FIELD(Dspl), TREKCOM_FIELD(Color);
    }
};

template <>
struct Record<cLap> {
    static constexpr const char* kClass = "Lap";
    template <class R, class V>
    static void Fields(R& r, V&& v) {
        TREKCOM_FIELD(Start_Time), TREKCOM_FIELD(Start_Time_Seconds), TREKCOM_FIELD(Total_Time);
        TREKCOM_FIELD(Total_Distance), TREKCOM_FIELD(Begin_Lat), TREKCOM_FIELD(Begin_Lon), TREKCOM_FIELD(End_Lat);
        TREKCOM_FIELD(End_Lon), TREKCOM_FIELD(Calories), TREKCOM_FIELD(Track_Index), TREKCOM_FIELD(Unused);
    }
};

template <>
struct Record<cFlightbook_Record> {
    static constexpr const char* kClass = "FlightbookRecord";
    template <class R, class V>
    static void Fields(R& r, V&& v) {
        TREKCOM_FIELD(Takeoff_Time), TREKCOM_FIELD(Takeoff_Seconds), TREKCOM_FIELD(Landing_Time);
        TREKCOM_FIELD(Landing_Seconds), TREKCOM_FIELD(Takeoff_Lat), TREKCOM_FIELD(Takeoff_Lon);
        TREKCOM_FIELD(Landing_Lat), TREKCOM_FIELD(Landing_Lon), TREKCOM_FIELD(Night_Time);
        TREKCOM_FIELD(Num_Landings), TREKCOM_FIELD(Max_Speed), TREKCOM_FIELD(Max_Alt), TREKCOM_FIELD(Distance);
        TREKCOM_FIELD(Cross_Country), TREKCOM_FIELD(Departure_Airport_Name);
        TREKCOM_FIELD(Departure_Airport_Ident), TREKCOM_FIELD(Arrival_Airport_Name);
        TREKCOM_FIELD(Arrival_Airport_Ident), TREKCOM_FIELD(Aircraft_ID);
    }
};

template <>
struct Record<cAlmanac> {
    static constexpr const char* kClass = "Almanac";
    template <class R, class V>
    static void Fields(R& r, V&& v) {
        TREKCOM_FIELD(svid), TREKCOM_FIELD(wn), TREKCOM_FIELD(toa), TREKCOM_FIELD(af0), TREKCOM_FIELD(af1);
        TREKCOM_FIELD(e), TREKCOM_FIELD(sqrta), TREKCOM_FIELD(m0), TREKCOM_FIELD(w), TREKCOM_FIELD(omg0);
        TREKCOM_FIELD(odot), TREKCOM_FIELD(i), TREKCOM_FIELD(hlth);
    }
};

template <>
struct Record<cPvtData> {
    static constexpr const char* kClass = "PvtData";
    template <class R, class V>
    static void Fields(R& r, V&& v) {
        TREKCOM_FIELD(Alt), TREKCOM_FIELD(epe), TREKCOM_FIELD(eph), TREKCOM_FIELD(epv), TREKCOM_FIELD(pfix);
        TREKCOM_FIELD(tow), TREKCOM_FIELD(Lat), TREKCOM_FIELD(Lon), TREKCOM_FIELD(east), TREKCOM_FIELD(north);
        TREKCOM_FIELD(up), TREKCOM_FIELD(msl_hght), TREKCOM_FIELD(leap_scnds), TREKCOM_FIELD(wn_days);
    }
};

template <>
struct Record<cPosition> {
    static constexpr const char* kClass = "Position";
    template <class R, class V>
    static void Fields(R& r, V&& v) {
        TREKCOM_FIELD(Lat), TREKCOM_FIELD(Lon);
    }
};

template <>
struct Record<cDate_Time> {
    static constexpr const char* kClass = "DateTime";
    template <class R, class V>
    static void Fields(R& r, V&& v) {
        TREKCOM_FIELD(month), TREKCOM_FIELD(day), TREKCOM_FIELD(year), TREKCOM_FIELD(hour), TREKCOM_FIELD(minute);
        TREKCOM_FIELD(second);
    }
};

template <>
struct Record<cProduct_Data> {
    static constexpr const char* kClass = "ProductData";
    template <class R, class V>
    static void Fields(R& r, V&& v) {
        TREKCOM_FIELD(Product_ID), TREKCOM_FIELD(Software_Version), TREKCOM_FIELD(Product_Description_1);
        TREKCOM_FIELD(Product_Description_2), TREKCOM_FIELD(Product_Description_3);
        TREKCOM_FIELD(Product_Description_4), TREKCOM_FIELD(Product_Description_5);
        TREKCOM_FIELD(Product_Description_6), TREKCOM_FIELD(Unit_ID), TREKCOM_FIELD(GPS_Name);
    }
};

template <>
struct Record<cVoltages> {
    static constexpr const char* kClass = "Voltages";
    template <class R, class V>
    static void Fields(R& r, V&& v) {
        TREKCOM_FIELD(Internal_Voltage), TREKCOM_FIELD(External_Voltage);
    }
};

template <>
struct Record<cSat> {
    static constexpr const char* kClass = "Sat";
    template <class R, class V>
    static void Fields(R& r, V&& v) {
        TREKCOM_FIELD(svid), TREKCOM_FIELD(snr), TREKCOM_FIELD(elev), TREKCOM_FIELD(azimuth), TREKCOM_FIELD(status);
    }
};

template <>
struct Record<cFitness_Point> {
    static constexpr const char* kClass = "FitnessPoint";
    template <class R, class V>
    static void Fields(R& r, V&& v) {
        TREKCOM_FIELD(Lat), TREKCOM_FIELD(Lon), TREKCOM_FIELD(Time), TREKCOM_FIELD(Alt), TREKCOM_FIELD(Distance);
        TREKCOM_FIELD(Track_Index), TREKCOM_FIELD(Heart_Rate), TREKCOM_FIELD(Cadence), TREKCOM_FIELD(Sensor);
    }
};

template <>
struct Record<cFitness_Lap> {
    static constexpr const char* kClass = "FitnessLap";
    template <class R, class V>
    static void Fields(R& r, V&& v) {
        TREKCOM_FIELD(Index), TREKCOM_FIELD(Start_Time), TREKCOM_FIELD(Total_Time), TREKCOM_FIELD(Total_Dist);
        TREKCOM_FIELD(Max_Speed), TREKCOM_FIELD(Begin_Lat), TREKCOM_FIELD(Begin_Lon), TREKCOM_FIELD(End_Lat);
        TREKCOM_FIELD(End_Lon), TREKCOM_FIELD(Calories), TREKCOM_FIELD(Unused), TREKCOM_FIELD(Avg_Heart_Rate);
        TREKCOM_FIELD(Max_Heart_Rate), TREKCOM_FIELD(Intensity), TREKCOM_FIELD(Avg_Cadence);
        TREKCOM_FIELD(Trigger_Method), TREKCOM_FIELD(Extra);
    }
};

// The run's own fields; its Laps and Points travel beside them.
template <>
struct Record<cRun> {
    static constexpr const char* kClass = "Run";
    template <class R, class V>
    static void Fields(R& r, V&& v) {
        TREKCOM_FIELD(Track_Index), TREKCOM_FIELD(First_Lap_Index), TREKCOM_FIELD(Last_Lap_Index);
        TREKCOM_FIELD(Sport_Type), TREKCOM_FIELD(Program_Type), TREKCOM_FIELD(Multisport), TREKCOM_FIELD(Unused1);
        TREKCOM_FIELD(Unused2), TREKCOM_FIELD(Partner_Time), TREKCOM_FIELD(Partner_Distance);
        TREKCOM_FIELD(Workout);
    }
};

template <>
struct Record<cCourse_Lap> {
    static constexpr const char* kClass = "CourseLap";
    template <class R, class V>
    static void Fields(R& r, V&& v) {
        TREKCOM_FIELD(Course_Index), TREKCOM_FIELD(Lap_Index), TREKCOM_FIELD(Total_Time), TREKCOM_FIELD(Total_Dist);
        TREKCOM_FIELD(Begin_Lat), TREKCOM_FIELD(Begin_Lon), TREKCOM_FIELD(End_Lat), TREKCOM_FIELD(End_Lon);
        TREKCOM_FIELD(Avg_Heart_Rate), TREKCOM_FIELD(Max_Heart_Rate), TREKCOM_FIELD(Intensity);
        TREKCOM_FIELD(Avg_Cadence);
    }
};

template <>
struct Record<cCourse_Point> {
    static constexpr const char* kClass = "CoursePoint";
    template <class R, class V>
    static void Fields(R& r, V&& v) {
        TREKCOM_FIELD(Name), TREKCOM_FIELD(Unused1), TREKCOM_FIELD(Course_Index), TREKCOM_FIELD(Unused2);
        TREKCOM_FIELD(Track_Point_Time), TREKCOM_FIELD(Point_Type);
    }
};

// The course's own fields; its laps, points and track travel beside them.
template <>
struct Record<cCourse> {
    static constexpr const char* kClass = "Course";
    template <class R, class V>
    static void Fields(R& r, V&& v) {
        TREKCOM_FIELD(Index), TREKCOM_FIELD(Unused), TREKCOM_FIELD(Course_Name), TREKCOM_FIELD(Track_Index);
    }
};

#undef TREKCOM_FIELD

py::object Class(const char* name) { return py::module_::import("trekcom.records").attr(name); }

// ---------------------------------------------------------------- C++ to Python

py::object Value(const std::string& text) {
    // Text from a receiver is UTF-8 once translated; a stray byte must not lose the record.
    return py::reinterpret_steal<py::object>(
        PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace"));
}
py::object Value(const Bytes& bytes) {
    return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}
template <class N>
    requires std::is_arithmetic_v<N>
py::object Value(N n) {
    return py::cast(n);
}

// The record's fields, and any extra ones, as keyword arguments of its class.
template <class T>
py::dict Keywords(const T& record) {
    py::dict keywords;
    Record<T>::Fields(record, [&](const char* name, const auto& field) { keywords[name] = Value(field); });
    return keywords;
}

template <class T>
py::object Make(const py::object& cls, const T& record) {
    return cls(**Keywords(record));
}

template <class T>
py::list List_Of(const std::vector<T>& records, const char* class_name = Record<T>::kClass) {
    const py::object cls = Class(class_name);
    py::list out;
    for (const T& r : records) out.append(Make(cls, r));
    return out;
}

template <class T>
py::list List_Of(const std::shared_ptr<Collection<T>>& records) {
    const py::object cls = Class(Record<T>::kClass);
    py::list out;
    if (!records) return out;
    for (const auto& r : *records)
        if (r) out.append(Make(cls, *r));
    return out;
}

// ---------------------------------------------------------------- Python to C++

[[noreturn]] void Bad_Field(const char* cls, const char* name, py::handle value, const char* expected) {
    throw py::type_error(std::string(cls) + "." + name + ": expected " + expected + ", got " +
                         py::repr(value).cast<std::string>());
}

void Assign(std::string& field, py::handle value, const char* cls, const char* name) {
    if (!py::isinstance<py::str>(value)) Bad_Field(cls, name, value, "str");
    field = value.cast<std::string>();
}
template <class N>
    requires std::is_arithmetic_v<N>
void Assign(N& field, py::handle value, const char* cls, const char* name) {
    if constexpr (std::is_same_v<N, bool>) {
        if (!py::isinstance<py::bool_>(value)) Bad_Field(cls, name, value, "bool");
        field = value.cast<bool>();
    } else if constexpr (std::is_integral_v<N>) {
        // A bool is an int to Python; an int that does not fit the field is refused, never wrapped.
        py::detail::make_caster<N> caster;
        if (!py::isinstance<py::int_>(value) || !caster.load(value, false))
            Bad_Field(cls, name, value, std::is_signed_v<N> ? "an int of its field's range" : "a non-negative int of its field's range");
        field = py::detail::cast_op<N>(caster);
    } else {
        if (!py::isinstance<py::float_>(value) && !py::isinstance<py::int_>(value)) Bad_Field(cls, name, value, "float");
        field = static_cast<N>(value.cast<double>());
    }
}

template <class T>
T Read(py::handle object, const char* cls = Record<T>::kClass) {
    T record;
    Record<T>::Fields(record, [&](const char* name, auto& field) {
        if (!py::hasattr(object, name))
            throw py::type_error(std::string("expected a ") + cls + " (or an object with its fields), got " +
                                 py::repr(object).cast<std::string>());
        Assign(field, object.attr(name), cls, name);
    });
    return record;
}

template <class T>
std::vector<T> Read_List(py::handle list, const char* cls = Record<T>::kClass) {
    std::vector<T> out;
    for (py::handle item : py::iter(list)) out.push_back(Read<T>(item, cls));
    return out;
}

template <class T>
std::shared_ptr<Collection<T>> Read_Collection(py::handle list) {
    auto out = std::make_shared<Collection<T>>();
    for (py::handle item : py::iter(list)) out->Add(std::make_shared<T>(Read<T>(item)));
    return out;
}

bool Is(py::handle object, const char* class_name) { return py::isinstance(object, Class(class_name)); }

}  // namespace

// ---------------------------------------------------------------- kinds

py::list Kind_To_Python(const tool::Data& data, tool::Kind kind) {
    using tool::Kind;
    switch (kind) {
        case Kind::Waypoints: return List_Of(data.waypoints);
        case Kind::Proximity: return List_Of(data.proximity);
        case Kind::Routes: {
            const py::object cls = Class("Route");
            py::list out;
            for (const auto& route : data.routes) {
                py::dict keywords = Keywords(route.header);
                keywords["Waypoints"] = List_Of(route.points);
                out.append(cls(**keywords));
            }
            return out;
        }
        case Kind::Tracks: {
            const py::object cls = Class("Track");
            py::list out;
            for (const auto& track : data.tracks) {
                py::dict keywords = Keywords(track.header);
                keywords["Points"] = List_Of(track.points);
                out.append(cls(**keywords));
            }
            return out;
        }
        case Kind::Laps: return List_Of(data.laps);
        case Kind::Flightbook: return List_Of(data.flights);
        case Kind::Almanac: return List_Of(data.almanac);
    }
    return py::list();
}

void Kind_From_Python(py::handle records, tool::Kind kind, tool::Data& data) {
    using tool::Kind;
    if (!data.Has(kind)) data.kinds.push_back(kind);
    switch (kind) {
        case Kind::Waypoints: data.waypoints = Read_List<cWaypoint>(records); break;
        case Kind::Proximity: data.proximity = Read_List<cWaypoint>(records); break;
        case Kind::Routes:
            for (py::handle r : py::iter(records))
                data.routes.push_back({Read<cRoute>(r), Read_List<cWaypoint>(r.attr("Waypoints"))});
            break;
        case Kind::Tracks:
            for (py::handle t : py::iter(records)) {
                if (Is(t, "TrackPoint")) {
                    if (data.tracks.empty() || !data.tracks.back().header.Ident.empty()) data.tracks.emplace_back();
                    data.tracks.back().points.push_back(Read<cTrack>(t));
                    continue;
                }
                data.tracks.push_back({Read<cTrack>(t, "Track"), Read_List<cTrack>(t.attr("Points"))});
            }
            break;
        case Kind::Laps: data.laps = Read_List<cLap>(records); break;
        case Kind::Flightbook: data.flights = Read_List<cFlightbook_Record>(records); break;
        case Kind::Almanac: data.almanac = Read_List<cAlmanac>(records); break;
    }
}

// ---------------------------------------------------------------- fitness

py::object Run_To_Python(const cRun& run) {
    py::dict keywords = Keywords(run);
    keywords["Laps"] = List_Of(run.Laps);
    keywords["Points"] = List_Of(run.Points);
    return Class("Run")(**keywords);
}

py::list Courses_To_Python(const Collection<cCourse>& courses) {
    const py::object cls = Class("Course");
    py::list out;
    for (const auto& c : courses) {
        if (!c) continue;
        py::dict keywords = Keywords(*c);
        keywords["Laps"] = List_Of(c->Laps);
        keywords["Course_Points"] = List_Of(c->Course_Points);
        keywords["Points"] = List_Of(c->Points);
        out.append(cls(**keywords));
    }
    return out;
}

Collection<cCourse> Courses_From_Python(py::handle courses) {
    Collection<cCourse> out;
    for (py::handle c : py::iter(courses)) {
        auto course = std::make_shared<cCourse>(Read<cCourse>(c));
        course->Laps = Read_Collection<cCourse_Lap>(c.attr("Laps"));
        course->Course_Points = Read_Collection<cCourse_Point>(c.attr("Course_Points"));
        course->Points = Read_Collection<cFitness_Point>(c.attr("Points"));
        out.Add(std::move(course));
    }
    return out;
}

// ---------------------------------------------------------------- real-time records

py::object Product_To_Python(const cProduct_Data& product, const std::vector<std::string>& protocols) {
    py::dict keywords = Keywords(product);
    keywords["Protocols"] = py::cast(protocols);
    return Class("ProductData")(**keywords);
}

py::object Pvt_To_Python(const cPvtData& pvt) {
    constexpr double kDegrees = 180.0 / std::numbers::pi;
    cPvtData in_degrees = pvt;
    in_degrees.Lat *= kDegrees;
    in_degrees.Lon *= kDegrees;
    return Make(Class("PvtData"), in_degrees);
}

py::list Sats_To_Python(const Collection<cSat>& sats) {
    const py::object cls = Class("Sat");
    py::list out;
    for (const auto& s : sats)
        if (s && s->svid != 0xFF) out.append(Make(cls, *s));  // 0xFF: an empty channel
    return out;
}

py::object Position_To_Python(const cPosition& position) { return Make(Class("Position"), position); }
py::object Date_Time_To_Python(const cDate_Time& time) { return Make(Class("DateTime"), time); }
py::object Voltages_To_Python(const cVoltages& voltages) { return Make(Class("Voltages"), voltages); }

}  // namespace trekcom::python
