#include "tests/windows/tools/vexelctl_fixture.h"

#include <algorithm>
#include <filesystem>

namespace {

using namespace toolstest;

TEST_F(Vexelctl, DoctorFindsNothingWrongWithAWholeInstallation) {
  const Json findings = DoctorFindings(L"", 0);
  for (const char* const topic : {"sdk", "pipe library", "webvexlaunch.exe", "vxpixeleditor.exe", "log level",
                                  "log file", "elevation", "first open"}) {
    EXPECT_EQ(Finding(findings, topic).at("grade"), "ok") << topic;
  }
  EXPECT_TRUE(Contains(Finding(findings, "log file").at("text"), "not there yet"));
  EXPECT_FALSE(std::filesystem::exists(File(L"log"))) << "the doctor leaves nothing behind";
}

TEST_F(Vexelctl, DoctorNamesEachMissingFileWithARemedy) {
  WriteFileBytes(File(L"vpipearm64.dll"), ReadFileBytes(File(L"vpipearm64.dll")).substr(0, 2000));
  const Json damaged = DoctorFindings(L"", 1);
  EXPECT_EQ(std::count_if(damaged.begin(), damaged.end(),
                          [](const Json& finding) {
                            return finding.at("topic") == "pipe library" && finding.at("grade") == "note";
                          }),
            1)
      << damaged.dump(1);
  std::filesystem::remove(File(L"vpipearm64.dll"));
  std::filesystem::remove(File(L"webvexlaunch.exe"));
  const Json findings = DoctorFindings(L"", 1);
  for (const char* const topic : {"pipe library", "webvexlaunch.exe", "first open"}) {
    EXPECT_EQ(Finding(findings, topic).at("grade"), "problem") << topic;
    EXPECT_NE(Finding(findings, topic).value("remedy", ""), "") << topic;
  }
  EXPECT_EQ(Finding(findings, "vxpixeleditor.exe").at("grade"), "ok");
}

TEST_F(Vexelctl, DoctorKnowsTheOrderInWhichThePipeLibraryIsSought) {
  std::filesystem::create_directory(File(L"host"));
  std::filesystem::copy_file(File(L"webvexlaunch.exe"), File(L"host\\browser.exe"));
  const std::string beside = Finding(DoctorFindings(L"--host host\\browser.exe", 0), "pipe library").at("text");
  EXPECT_TRUE(beside.starts_with(Utf8(File(L"vpipearm64.dll")))) << beside;
  EXPECT_LT(beside.find("host\\, then"), beside.size()) << beside;
  std::filesystem::copy_file(File(L"vpipearm64.dll"), File(L"host\\vpipearm64.dll"));
  const Json findings = DoctorFindings(L"--host host\\browser.exe", 0);
  const std::string first = Finding(findings, "pipe library").at("text");
  EXPECT_TRUE(first.starts_with(Utf8(File(L"host\\vpipearm64.dll")))) << first;
  EXPECT_TRUE(Contains(Finding(findings, "log file").at("text"), "host\\log\\browser.vexelsdk.dll.log"));
}

TEST_F(Vexelctl, DoctorSaysWhichSavedProcessWouldBeTakenOver) {
  MakeLog();
  const std::string waiting = Finding(DoctorFindings(L"", 0), "saved preview_pid").at("text");
  EXPECT_TRUE(Contains(waiting, "would be taken over as the waiting webvexlaunch.exe")) << waiting;
  const std::uint32_t pid = static_cast<std::uint32_t>(std::stoul(waiting));
  // The same ids, seen from an installation elsewhere.
  std::filesystem::create_directory(File(L"other"));
  for (const wchar_t* const name : {L"vexelsdk.dll", L"vpipearm64.dll", L"vxpixeleditor.exe", L"webvexlaunch.exe"}) {
    std::filesystem::copy_file(File(name), File(std::wstring(L"other\\") + name));
  }
  const std::string foreign = Finding(DoctorFindings(L"--sdk other", 0), "saved preview_pid").at("text");
  EXPECT_TRUE(Contains(foreign, "would not be taken over: it runs ")) << foreign;
  EndProgram(pid);
  ASSERT_TRUE(WaitFor([&] {
    return Contains(Finding(DoctorFindings(L"", 0), "saved preview_pid").at("text"),
                    "would not be taken over: no such process");
  }));
}

TEST_F(Vexelctl, ASecondHostBesideOneThatRunsIsFoundAndItsCloseIsExplained) {
  const HANDLE first = Start(L"open --for 3600 a.bmp", "", L"first-");
  ASSERT_NE(first, nullptr);
  CloseHandle(first); // it ends with the folder
  ASSERT_TRUE(WaitFor([this] { return Contains(ReadFileBytes(File(L"first-out.txt")), " open_pic_success"); }));
  // The place of the process that the first host has opened with is filled anew, and served by it.
  Json saved;
  ASSERT_TRUE(WaitFor([&] {
    const Json findings = Json::parse(Run(L"doctor --json").out).at("findings");
    saved = Finding(findings, "saved preview_pid");
    return saved.at("grade") == "problem";
  })) << saved;
  EXPECT_TRUE(Contains(saved.at("text"), "another host serves it")) << saved;
  EXPECT_NE(saved.value("remedy", ""), "");
  EXPECT_EQ(Finding(DoctorFindings(L"", 1), "first open").at("grade"), "problem");

  const Result second = Run(L"open --limit 100 a.bmp", "expect open_pic_process_success\nwait 500\nclose\n");
  EXPECT_EQ(second.code, 1U) << second.out << second.err;
  const std::vector<std::string> lines = Lines(second.err);
  ASSERT_EQ(lines.size(), 1U) << second.err;
  EXPECT_TRUE(lines[0].starts_with("vexelctl: the close met id 1 without a link, which ends a host")) << lines[0];
  EXPECT_TRUE(Contains(second.out, "open_pic_process_success")) << second.out;
}

TEST_F(Vexelctl, DoctorFindsAProgramThatCannotStart) {
  const std::string whole = ReadFileBytes(File(L"webvexlaunch.exe"));
  WriteFileBytes(File(L"webvexlaunch.exe"), whole.substr(0, 2000));
  const Json cut = Finding(DoctorFindings(L"", 1), "webvexlaunch.exe");
  EXPECT_EQ(cut.at("grade"), "problem");
  EXPECT_TRUE(Contains(cut.at("text"), "cannot be loaded, error ")) << cut;

  std::string foreign = whole;
  const auto header = static_cast<unsigned char>(foreign.at(0x3C)) +
                      static_cast<std::size_t>(static_cast<unsigned char>(foreign.at(0x3D))) * 256;
  foreign.at(header + 4) = '\xC4'; // a processor of another family
  foreign.at(header + 5) = '\x01';
  WriteFileBytes(File(L"webvexlaunch.exe"), foreign);
  const Json other = Finding(DoctorFindings(L"", 1), "webvexlaunch.exe");
  EXPECT_EQ(other.at("grade"), "problem");
  EXPECT_TRUE(Contains(other.at("text"), "is built for machine 452, and this machine takes ")) << other;
  EXPECT_NE(other.value("remedy", ""), "");
}

TEST_F(Vexelctl, DoctorFindsThatTheLogsFolderIsAFile) {
  WriteFileBytes(File(L"log"), "in the way");
  const Json finding = Finding(DoctorFindings(L"", 0), "log file");
  EXPECT_EQ(finding.at("grade"), "note");
  EXPECT_TRUE(Contains(finding.at("text"), "log is a file, so vexelctl.vexelsdk.dll.log cannot be made")) << finding;
  EXPECT_EQ(finding.value("remedy", ""), "move that file away");
}

TEST_F(Vexelctl, DoctorTellsALogLevelOfAnotherTypeFromNone) {
  const wchar_t* const path = L"Software\\Tarnwick\\antivirus\\sysopt";
  HKEY key = nullptr;
  ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr),
            ERROR_SUCCESS);
  RegDeleteValueW(key, L"LogLevel");
  const std::string none = Finding(DoctorFindings(L"", 0), "log level").at("text");
  RegSetValueExW(key, L"LogLevel", 0, REG_SZ, reinterpret_cast<const BYTE*>(L"12"), 6);
  const std::string text = Finding(DoctorFindings(L"", 0), "log level").at("text");
  RegDeleteValueW(key, L"LogLevel");
  RegCloseKey(key);
  EXPECT_TRUE(Contains(none, "LogLevel is absent")) << none;
  EXPECT_TRUE(Contains(text, "LogLevel is longer than a REG_DWORD, and does not count")) << text;
  EXPECT_TRUE(text.starts_with("1, ")) << text;
}

TEST_F(Vexelctl, DoctorLooksAtTheParameter) {
  const std::string none = Finding(DoctorFindings(L"--param " + Base64("/apptype:7"), 1), "first open").at("text");
  EXPECT_TRUE(Contains(none, "application type 7, which is no program")) << none;
  const std::string second = Finding(DoctorFindings(L"--param " + Base64("/apptype:2"), 0), "first open").at("text");
  EXPECT_TRUE(Contains(second, "vxpixeleditor.exe")) << second;
}

} // namespace
