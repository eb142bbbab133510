// The screen and identity commands: screenshot and name.
#include <algorithm>
#include <fstream>
#include <iostream>
#include <map>

#include "commands.h"
#include "png_file.h"
#include "progress.h"

namespace trekcom::tool {

namespace {

Screen_Turn Turn_Named(const std::string& name) {
    static const std::map<std::string, Screen_Turn> kTurns = {
        {"auto", Screen_Turn::Automatic}, {"none", Screen_Turn::Upright}, {"left", Screen_Turn::Quarter_Left},
        {"right", Screen_Turn::Quarter_Right}, {"half", Screen_Turn::Half}, {"mirror", Screen_Turn::Mirror}};
    const auto it = kTurns.find(name);
    if (it == kTurns.end()) throw Failure(kUsage, "unknown turn \"" + name + "\"");
    return it->second;
}

// The control ignores a palette it cannot read: say so before asking.
void Check_Palette(const std::string& path) {
    std::ifstream in(path);
    std::string first;
    if (!in || !std::getline(in, first) || first.rfind("GIMP Palette", 0) != 0)
        throw Failure(kBad_File, path + " is not a GIMP palette (its first line is \"GIMP Palette\")");
}

struct Session_Open {
    explicit Session_Open(Session_Options& options) : session(options) {
        session.Open();
        session.Identify();
    }
    Session session;
};

}  // namespace

int Run_Screenshot(Session_Options& s, const Command_Options& c) {
    if (!c.palette.empty()) Check_Palette(c.palette);
    Session_Open o(s);
    TrekcomCtl& ctl = o.session.Ctl();
    ctl.Palette_File(c.palette);
    ctl.Display_Turn(Turn_Named(c.rotate));
    Picture picture;
    bool whole = false;
    {
        Progress bar("screen", s.progress);
        o.session.On_Image = [&](std::int16_t pct, const Picture& image) {
            bar.Update(pct, 100);
            if (pct < 100) return;
            picture = image;
            whole = true;
        };
        const std::size_t before = o.session.Errors().size();
        ctl.Request_Display();
        if (!whole) {
            const auto& errors = o.session.Errors();
            throw Failure(kIncomplete, "screenshot: " + (errors.size() > before ? errors[before] : "no picture came"));
        }
    }
    std::string error;
    const auto& d = *ctl.Display();
    if (!Write_Png(c.image, picture, std::clamp<int>(d.Bits_Per_Pixel, 1, 8), error)) throw Failure(kError, error);
    std::cout << c.image << ": " << picture.Width << " x " << picture.Height << ", " << d.Bits_Per_Pixel
              << " bits per pixel on the unit\n";
    return kOk;
}

int Run_Name(Session_Options& s, const Command_Options& c) {
    Session_Open o(s);
    TrekcomCtl& ctl = o.session.Ctl();
    ctl.Request_GPS_Name();
    const cProduct_Data& pd = *ctl.Product_Data();
    std::cout << "Name:         " << pd.GPS_Name << '\n'
              << "Unit id:      " << (pd.Unit_ID.empty() ? "(the unit does not tell)" : pd.Unit_ID) << '\n';
    if (c.new_name.empty()) return kOk;
    const std::size_t before = o.session.Errors().size();
    ctl.Change_GPS_Name(c.new_name);
    const auto& errors = o.session.Errors();
    throw Failure(kUnsupported, "name: " + (errors.size() > before ? errors[before] : "the unit cannot be renamed"));
}

int Run_Icon(Session_Options& s, const Command_Options& c) {
    Picture picture;
    std::string error;
    if (c.icon_action == "put" && c.input.empty()) throw Failure(kUsage, "icon put: which PNG file?");
    if (c.icon_action == "put" && !Read_Png(c.input, picture, error)) throw Failure(kBad_File, error);
    Session_Open o(s);
    TrekcomCtl& ctl = o.session.Ctl();
    const std::size_t before = o.session.Errors().size();
    if (c.icon_action == "put") {
        ctl.Send_Icon(c.icon, Bmp_File(picture));
        if (o.session.Errors().size() > before) throw Failure(kRefused, "icon put: " + o.session.Errors()[before]);
        std::cout << "custom icon " << c.icon << ": written from " << c.input << '\n';
        return kOk;
    }
    bool came = false;
    o.session.On_Icon = [&](const Picture& image) {
        picture = image;
        came = true;
    };
    ctl.Request_Icon(c.icon);
    if (!came) {
        const auto& errors = o.session.Errors();
        throw Failure(kUnsupported, "icon get: " + (errors.size() > before ? errors[before] : "no icon came"));
    }
    if (!Write_Png(c.icon_file, picture, 8, error)) throw Failure(kError, error);
    std::cout << c.icon_file << ": custom icon " << c.icon << ", " << picture.Width << " x " << picture.Height << '\n';
    return kOk;
}

}  // namespace trekcom::tool
