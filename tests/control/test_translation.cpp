// Messages in another language: the ".tlt" file beside the program (here in
// a folder of the test's own), created and grown as phrases are used, read
// with the profile functions' rules, and never a reason to stop.
#include "host.h"

namespace host_test {
namespace {

namespace fs = std::filesystem;

class Translation : public ::testing::Test {
protected:
    Translation() {
        h.vp->Translation_Folder(folder.path.string());
        h.vp->Missing_Port(3);
    }
    // "<folder>/<program>_<language>.tlt"
    fs::path File(const std::string& language) const {
        return folder.path / (fs::read_symlink("/proc/self/exe").stem().string() + "_" + language + ".tlt");
    }
    std::size_t Files() const {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder.path), fs::directory_iterator()));
    }
    // A link error: the port that is not there.
    std::string Open_Error() {
        h.ctl.Port(3);
        h.events.errors.clear();
        EXPECT_FALSE(h.ctl.PortOpen());
        return h.events.errors.empty() ? "" : h.events.errors.back().message;
    }

    Scratch_Folder folder;
    Host h;
};

TEST_F(Translation, EnglishOrNoLanguageTouchesNoFileButEveryOtherNameDoes) {
    for (const char* language : {"English", ""}) {
        h.ctl.Language(language);
        EXPECT_EQ(h.ctl.xLate("Property is Read Only"), "Property is Read Only");
        EXPECT_EQ(Open_Error(), "Unable to open port 3");
    }
    EXPECT_EQ(Files(), 0u);
    h.ctl.Language("english");  // the comparison is exact
    h.ctl.xLate("Property is Read Only");
    EXPECT_TRUE(fs::exists(File("english")));
}

TEST_F(Translation, TheFileIsCreatedAndGrownOnFirstUseThenTranslatesLinkErrors) {
    h.ctl.Language("Francais");
    EXPECT_EQ(Open_Error(), "Unable to open port 3");
    ASSERT_TRUE(fs::exists(File("Francais")));
    const std::string first = Read_File(File("Francais"));
    EXPECT_TRUE(first.starts_with("[Translations]")) << first;
    EXPECT_NE(first.find("\nUnable to open port ="), std::string::npos) << first;

    // A silent receiver: the time-out note and the error join the file.
    h.ctl.Port(1);
    ASSERT_TRUE(h.ctl.PortOpen());
    h.ctl.Reset();
    ASSERT_FALSE(h.events.errors.empty());
    EXPECT_EQ(h.events.errors.back().message, "No response from device");
    const std::string grown = Read_File(File("Francais"));
    EXPECT_TRUE(grown.starts_with(first)) << grown;
    EXPECT_NE(grown.find("\nNo response from device=No response from device"), std::string::npos) << grown;
    EXPECT_NE(grown.find("\nTime-out. expecting PID-&H="), std::string::npos) << grown;

    // The translator's work is used from the next message on, by the control
    // and by any utility object in the same language.
    Write_File(File("Francais"),
               "[Translations]\r\n"
               "Unable to open port =\"Impossible d'ouvrir le port \"\r\n"
               "No response from device=  Pas de r\u00E9ponse du GPS  \r\n");
    EXPECT_EQ(Open_Error(), "Impossible d'ouvrir le port 3");
    h.ctl.Port(1);
    h.ctl.Reset();
    EXPECT_EQ(h.events.errors.back().message, "Pas de r\u00E9ponse du GPS");
    EXPECT_EQ(h.events.vc_errors.back().message, "Pas de r\u00E9ponse du GPS");
    cSAK sak(h.vp);
    sak.Language("Francais");
    EXPECT_EQ(sak.xLate("No response from device"), "Pas de r\u00E9ponse du GPS");
}

TEST_F(Translation, TheFileIsReadAndWrittenWithTheProfileFunctionsRules) {
    h.ctl.Language("Test");
    const std::string text =
        "; translator's notes stay\r\n"
        "[Other]\r\n"
        "Property is Read Only=from another section\r\n"
        "[ translations ]\r\n"
        "  PROPERTY IS READ ONLY  =  Lecture seule  \r\n"
        "Property is Read Only=a second entry is never read\r\n"
        "USB connection failure='  quoted blanks stay  '\r\n"
        "No response from device=\r\n"
        "a line without an equals sign\r\n"
        "\r\n"
        "[Translations]\r\n"
        "Unable to communicate with device=a repeated section is not read\r\n";
    Write_File(File("Test"), text);
    EXPECT_EQ(h.ctl.xLate("Property is Read Only"), "Lecture seule");
    EXPECT_EQ(h.ctl.xLate("USB connection failure"), "  quoted blanks stay  ");
    EXPECT_EQ(Read_File(File("Test")), text);  // found phrases write nothing

    // An empty value counts as missing: that line gets the phrase, in place.
    EXPECT_EQ(h.ctl.xLate("No response from device"), "No response from device");
    std::string expected = text;
    const std::string empty_line = "No response from device=\r\n";
    expected.replace(expected.find(empty_line), empty_line.size(),
                     "No response from device=No response from device\r\n");
    EXPECT_EQ(Read_File(File("Test")), expected);

    // A missing phrase joins the end of the first Translations section.
    EXPECT_EQ(h.ctl.xLate("Unable to communicate with device"), "Unable to communicate with device");
    const std::string anchor = "a line without an equals sign\r\n";
    expected.insert(expected.find(anchor) + anchor.size(),
                    "Unable to communicate with device=Unable to communicate with device\r\n");
    EXPECT_EQ(Read_File(File("Test")), expected);
}

TEST_F(Translation, BlanksAfterAPhraseComeBackFromTheirOwnWriteBackAndValuesAreCutAt255Characters) {
    h.ctl.Language("Test");
    EXPECT_EQ(h.ctl.xLate("SetupDI Error "), "SetupDI Error ");  // written now
    EXPECT_EQ(h.ctl.xLate("SetupDI Error "), "SetupDI Error ");  // read back
    EXPECT_EQ(h.ctl.xLate("SetupDI Error"), "SetupDI Error ");   // one key for both: blanks round keys do not count

    std::string long_value, cut;
    for (int i = 0; i < 300; ++i) long_value += "\u00E9";  // two bytes each in UTF-8
    for (int i = 0; i < 255; ++i) cut += "\u00E9";
    Write_File(File("Test"), "[Translations]\nUSB connection failure=" + long_value +
                                 "\nNo response from device=" + std::string(255, 'x') + "\n");
    EXPECT_EQ(h.ctl.xLate("USB connection failure"), cut);
    EXPECT_EQ(h.ctl.xLate("No response from device"), std::string(255, 'x'));
}

// (Files of any bytes: the translate fuzz target.)
TEST_F(Translation, MissingUnreadableOrHugeFilesGiveTheEnglishPhrase) {
    const std::string phrase = "Property is Read Only";

    // No such folder: nothing is created.
    h.vp->Translation_Folder((folder.path / "absent").string());
    h.ctl.Language("Test");
    EXPECT_EQ(h.ctl.xLate(phrase), phrase);
    EXPECT_FALSE(fs::exists(folder.path / "absent"));
    h.vp->Translation_Folder(folder.path.string());

    // Not a file that can be read.
    fs::create_directory(File("Dir"));
    h.ctl.Language("Dir");
    EXPECT_EQ(h.ctl.xLate(phrase), phrase);
    EXPECT_TRUE(fs::is_directory(File("Dir")));

    // Far larger than any translation file: neither read nor rewritten.
    const std::string huge = "[Translations]\n" + phrase + "=Gross\n" + std::string(3 << 20, 'z');
    Write_File(File("Huge"), huge);
    h.ctl.Language("Huge");
    EXPECT_EQ(h.ctl.xLate(phrase), phrase);
    EXPECT_EQ(fs::file_size(File("Huge")), huge.size());

    // A language that would name a file elsewhere names none.
    h.ctl.Language("../escape");
    EXPECT_EQ(h.ctl.xLate(phrase), phrase);
    EXPECT_FALSE(fs::exists(folder.path.parent_path() / "escape.tlt"));

    // Through all of it the control kept working.
    h.ctl.Language("English");
    EXPECT_EQ(Open_Error(), "Unable to open port 3");
}

}  // namespace
}  // namespace host_test
