// A real host and a wrong library for each way to be wrong.
#include "tests/support/files.h"
#include "tests/system/private_node.h"

#include <cstdlib>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

class LibraryLoading : public testing::Test {
protected:
  LibraryLoading()
  {
    write("board", "BT5\n");
    for (const auto& [variable, value] : environment())
      setenv(variable.c_str(), value.c_str(), 1);
  }
  ~LibraryLoading() override
  {
    for (const auto& [variable, value] : environment())
      unsetenv(variable.c_str());
  }
  std::vector<std::pair<std::string, std::string>> environment() const
  {
    return {{"BLL_BOARD_ID", folder + "/board"},
            {"BLL_CONFIG", folder + "/config.xml"},
            {"BLL_LIB_DIR", folder},
            {"BLL_LIB_SECONDS", "2"}};
  }
  void write(const std::string& file, const std::string& text) const { std::ofstream(folder + "/" + file) << text; }
  void configure(const std::vector<std::string>& libraries) const
  {
    std::string rows;
    for (const std::string& library : libraries)
      rows += "<BLE Name='good' Load='dynamic' Library='" + library + "' Start='true'/>";
    write("config.xml", "<a><BLL><BOARD Id='all_boards'>" + rows + "</BOARD></BLL></a>");
  }
  // The name in the host's folder of the library that is wrong in that way.
  std::string library(const std::string& way) const
  {
    const std::string file = "libplugin_" + way + ".so";
    fs::copy_file(std::string(PLUGIN_LIBRARIES) + "/" + file, folder + "/" + file);
    return file;
  }
  static background host(std::vector<std::string> options = {"--log-to-stderr"})
  {
    options.insert(options.begin(), BLLHOST);
    return background(options);
  }
  static bool waitFor(const background& running, const std::string& text)
  {
    return wait_until([&] { return running.output().find(text) != std::string::npos; });
  }

  const own_folder own;
  const std::string& folder = own.path;
};

TEST_F(LibraryLoading, ALibraryThatCannotBeOpenedIsLeftOut)
{
  write("text.so", "no library\n");
  fs::copy_file(std::string(PLUGIN_LIBRARIES) + "/libplugin_good.so", folder + "/foreign.so");
  std::fstream(folder + "/foreign.so", std::ios::in | std::ios::out).seekp(offsetof(Elf64_Ehdr, e_machine)).put('\x02');
  configure({"missing.so", "text.so", "foreign.so", library("lacks_data"), library("of_another_abi"), library("good"),
             "libplugin_good.so"});
  background running = host();
  ASSERT_TRUE(waitFor(running, "Starting procedure has been completed")) << running.output();
  EXPECT_EQ(running.end(), 0);
  const auto refused = [&](const std::string& file, const std::string& reason) {
    return ContainsRegex("BLLManager, Can not load library<" + folder + "/" + file + ">!\n.*" + reason);
  };
  const std::string said = running.output();
  EXPECT_THAT(said, Not(HasSubstr("RPC Proxy has not been started")));
  EXPECT_THAT(said, refused("missing.so", "No such file"));
  EXPECT_THAT(said, refused("text.so", "(file too short|invalid ELF header)"));
  EXPECT_THAT(said, refused("foreign.so", "cannot open shared object file"));
  EXPECT_THAT(said, refused("libplugin_lacks_data.so", "undefined symbol: nobodyHasThisData"));
  EXPECT_THAT(said, refused("libplugin_of_another_abi.so", "undefined symbol: bll_framework_abi_"));
  EXPECT_THAT(said, HasSubstr("library <" + folder + "/libplugin_good.so> successfully loaded.\n"));
  EXPECT_THAT(said, HasSubstr("library <" + folder + "/libplugin_good.so> has been already loaded!\n"));
  EXPECT_THAT(said, HasSubstr("BLE <good>"));
}

// The loader is of no use any more, so nothing that comes after it is tried.
TEST_F(LibraryLoading, ALibraryThatLeavesTheLoaderLockedEndsTheHost)
{
  const std::vector<std::pair<std::string, std::string>> ways = {
      {"throws", "its constructors have thrown: no such device; the process ends.\n"},
      {"exits", "its constructors have called exit; the process ends.\n"},
      {"hangs", "its constructors have not returned within 2 seconds; the process ends.\n"}};
  const std::string good = library("good");
  for (const auto& [way, reason] : ways) {
    const std::string wrong = library(way);
    configure({wrong, good});
    background running = host();
    EXPECT_EQ(running.wait(), 3) << way;
    EXPECT_THAT(running.output(), ContainsRegex("Can not load library<" + folder + "/" + wrong + ">!\n.*" + reason));
    EXPECT_THAT(running.output(), Not(HasSubstr("successfully loaded"))) << way;
  }
}

// Functions are bound when they are first called. There the loader itself ends the process.
TEST_F(LibraryLoading, AMissingFunctionIsToldWhenItIsCalled)
{
  configure({library("lacks_function"), library("good")});
  background late = host();
  EXPECT_EQ(late.wait(), 127);
  EXPECT_THAT(late.output(), HasSubstr("undefined symbol: nobodyHasThisFunction"));
}

// Which file of settings the entities are shown, and which is written.
TEST_F(LibraryLoading, SettingsAreSavedAndShownAsAsked)
{
  configure({library("good")});
  const std::string earlier = folder + "/earlier.xml", later = folder + "/later.xml";
  write("earlier.xml", "<Configuration/>");
  setenv("BLL_SAVED", "/of/somebody/else", 1);
  const auto shown = [&](const std::vector<std::string>& options, const std::string& file) {
    background running = host(options);
    ASSERT_TRUE(waitFor(running, "main RPC loop")) << running.output();
    EXPECT_EQ(running.end(), 0);
    EXPECT_THAT(running.output(), HasSubstr("saved before: <" + file + ">\n"));
    EXPECT_THAT(running.output(), Not(HasSubstr("Starting procedure"))) << "the log is elsewhere";
  };
  shown({"--save", later}, "");
  EXPECT_THAT(file_text(later), HasSubstr("<good of=\"good\"/>"));
  shown({"--save", later}, later);
  shown({"--save", later, "--load", earlier}, earlier);
  fs::remove(later);
  shown({"--load", earlier}, earlier);
  EXPECT_FALSE(fs::exists(later));
  const fs::path before = fs::current_path();
  fs::current_path(folder);
  write("bll_saved.xml", "<Configuration/>");
  shown({}, "");
  shown({"--save", "earlier.xml"}, earlier);
  fs::current_path(before);
  unsetenv("BLL_SAVED");
  EXPECT_THAT(file_text(folder + "/bll_saved.xml"), Not(HasSubstr("good")));
  EXPECT_THAT(file_text(earlier), HasSubstr("<good of=\"good\"/>"));

  setenv("PLUGIN_REFUSES", "1", 1);
  background refused = host();
  unsetenv("PLUGIN_REFUSES");
  EXPECT_EQ(refused.wait(), 1);
  EXPECT_THAT(refused.output(), HasSubstr("bllhost: the entities could not be started; the system log says why\n"));
}

}  // namespace
