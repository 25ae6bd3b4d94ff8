// The XML settings store.
#include "rte/BLL/core/storage_mng.h"
#include "tests/support/child.h"
#include "tests/support/files.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>

namespace {

int cleanUps = 0;

}  // namespace

// Takes the place of libxml2's, and counts.
extern "C" void xmlCleanupParser()
{
  ++cleanUps;
  reinterpret_cast<void (*)()>(dlsym(RTLD_NEXT, "xmlCleanupParser"))();
}

namespace {

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

class Settings : public testing::Test {
protected:
  Settings() { CaptureStdout(); }
  ~Settings() override
  {
    const std::string rest = GetCapturedStdout();
    if (HasFailure())
      std::cout << heard << rest << std::endl;
    EXPECT_EQ(entries("/proc/self/fd"), descriptors);
  }
  std::string path(const std::string& file) const { return folder + "/" + file; }
  std::string write(const std::string& content) const
  {
    std::ofstream(path("in.xml")) << content;
    errno = EINTR;  // of a call before
    return path("in.xml");
  }
  std::string saved() const { return file_text(path("out.xml")); }
  // What was said on standard output since the last time.
  std::string said()
  {
    std::string text = GetCapturedStdout();
    CaptureStdout();
    heard += text;
    return text;
  }

  static std::string repeated(const std::string& text, int times)
  {
    std::string result;
    for (int i = 0; i < times; ++i)
      result += text;
    return result;
  }

  const std::ptrdiff_t descriptors = entries("/proc/self/fd");
  const own_folder own;
  const std::string& folder = own.path;
  std::string heard;  // printed after a failure: the report of it is in there
  Storage::StorageMng store;
};

TEST_F(Settings, AFreshStoreIsSavedAndLoadedAgain)
{
  EXPECT_TRUE(store.save(path("out.xml")));
  EXPECT_EQ(saved(), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Configuration/>\n");
  EXPECT_EQ(said(), "StorageMng::save(): Success! 56Bytes was written.");
  const auto ports = store.addRoot("ports");
  for (const char* id : {"1", "2"})
    ports->addSubSetting("port")->setValue("Id", id);
  ports->addSubSetting("last");
  EXPECT_TRUE(store.save(path("out.xml")));
  Storage::StorageMng again;
  ASSERT_TRUE(again.load(path("out.xml")));
  std::string walk;
  for (auto port = again.getRoot("ports")->getSubSetting("port"); port; port = port->getNext())
    walk += port->getValue("Id") + ";";
  EXPECT_EQ(walk, "1;2;;") << "a walk does not look at names";
  EXPECT_FALSE(again.getRoot("Configuration"));
  EXPECT_FALSE(again.getRoot("ports")->getSubSetting("Port"));
}

TEST_F(Settings, ValuesAreAttributesOnly)
{
  ASSERT_TRUE(store.load(write("<any>text<a v='1' w=''><v>2</v><u/></a><!-- c --><a v='3'/></any>")));
  const auto first = store.getRoot("a");
  EXPECT_EQ(first->getValue("v") + first->getValue("w") + first->getValue("u"), "1");
  EXPECT_EQ(first->getNext()->getValue("v"), "3");
  EXPECT_FALSE(first->getNext()->getNext());
  first->setValue("v", "4");
  EXPECT_EQ(first->getValue("v"), "1") << "the one in front";
  ASSERT_TRUE(store.load(write("<?xml version='1.0' encoding='ISO-8859-1'?><a><b v='\xE9'/></a>")));
  ASSERT_TRUE(store.save(path("out.xml")));
  EXPECT_EQ(saved(), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a>\n  <b v=\"\xC3\xA9\"/>\n</a>\n");
}

TEST_F(Settings, AnyValueIsReadBackAsItWasSet)
{
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte)
    bytes += static_cast<char>(byte);
  const std::string values[] = {
      "<&>\"' \t\n\r \xC3\xA9 \xF0\x9F\x98\x80 \xC2\x85 \xE2\x80\xA8 ]]> -- &amp; &#1;", bytes,
      "\xC1\x81 \xE0\x80\x80 \xED\xA0\x80 \xEF\xBF\xBE \xF4\x90\x80\x80 \xC3",  // no characters
      "\xEE\xBC\x81 \xEE\xBE\x80 \xEE\xBF\xBF \xEE\xBC\xA0",                    // private ones
      " ends in blanks  "};
  for (const std::string& value : values) {
    Storage::StorageMng original;
    original.addRoot("a")->setValue("v", value);
    EXPECT_EQ(original.getRoot("a")->getValue("v"), value);
    ASSERT_TRUE(original.save(path("out.xml")));
    ASSERT_TRUE(store.load(path("out.xml"))) << saved();
    EXPECT_EQ(store.getRoot("a")->getValue("v"), value);
  }
  // What XML cannot hold stands in the file as a private character, all else as it is: the first and last of each
  // length.
  const std::string characters = "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBD\xF0\x90\x80\x80\xF4\x8F\xBF\xBD";
  store.getRoot("a")->setValue("w", "\x01\x1F\x20\x7E\x80\xFF" + characters);
  ASSERT_TRUE(store.save(path("out.xml")));
  EXPECT_THAT(saved(),
              testing::HasSubstr(" w=\"\xEE\xBC\x81\xEE\xBC\x9F ~\xEE\xBE\x80\xEE\xBF\xBF" + characters + "\"/>"));
}

TEST_F(Settings, NamesThatXmlDoesNotAllowAreRefused)
{
  const auto root = store.addRoot("a");
  for (const std::string name : {"", "a b", "1", "<", "a:b"}) {
    EXPECT_FALSE(store.addRoot(name) || root->addSubSetting(name)) << name;
    root->setValue(name, "1");
    EXPECT_EQ(said(), "StorageMng::addRoot(): error during adding " + name + " to the document!\n" +
                          "Setting::addSubSetting(): error during adding " + name + " to the node as child!\n" +
                          "Setting::setValue(): error during adding " + name + " to the node!\n");
  }
  root->setValue("xmlns", "1");
  root->setValue(std::string("b\0c", 3), "1");
  EXPECT_TRUE(store.save(path("out.xml")));
  EXPECT_EQ(saved(), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Configuration>\n  <a/>\n</Configuration>\n");
}

TEST_F(Settings, AFileThatCannotBeReadLeavesNoDocument)
{
  const std::string missing = path("missing");
  EXPECT_FALSE(store.load(missing));
  EXPECT_EQ(said(), "StorageMng::load(): could not parse file " + missing);
  EXPECT_FALSE(store.getRoot("a"));
  EXPECT_FALSE(store.addRoot("a"));
  EXPECT_FALSE(store.save(path("out.xml")));
  EXPECT_EQ(said(), "StorageMng::getRoot(): there are no document loaded yet\n"
                    "StorageMng::addRoot(): there are no document to add root\n"
                    "StorageMng::save(): there are no document to save\n");
  for (const char* content : {"", "<a>", "<a b='\xFF'/>", "not xml", "<a b='1' b='2'/>", "<a xmlns='&lt;'/>"})
    EXPECT_FALSE(store.load(write(content))) << content;
  EXPECT_FALSE(store.load(folder));
  testing::internal::CaptureStderr();
  EXPECT_TRUE(store.load(write("<a>\n" + repeated("<b:c/>", 20) + "</a>"))) << "and a good one is welcome again";
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            repeated(path("in.xml") + ":2: Namespace prefix b on c is not defined\n", 10));
}

TEST_F(Settings, EntitiesAreReadWithinLimits)
{
  const std::string small =
      "<!DOCTYPE a [<!ENTITY x '1 &#38;amp; 2'><!ENTITY y '&x;, &x;'>]><a><b v='&y;&lt;'>&y;<c/></b></a>";
  ASSERT_TRUE(store.load(write(small)));
  EXPECT_EQ(store.getRoot("b")->getValue("v"), "1 & 2, 1 & 2<");
  EXPECT_TRUE(store.getRoot("b")->getSubSetting("c"));

  std::string bomb = "<!DOCTYPE a [<!ENTITY e0 'lololololololololol'>";
  for (int i = 1; i < 12; ++i)
    bomb += "<!ENTITY e" + std::to_string(i) + " '" + repeated("&e" + std::to_string(i - 1) + ";", 12) + "'>";
  EXPECT_FALSE(store.load(write(bomb + "]><a><b v='&e11;'/></a>")));
  store.load(write(bomb + "]><a><b v='1'>&e11;</b></a>"));  // never expanded: whichever way it is answered

  // One long entity, used often: in proportion as it is parsed, but not as it is read.
  const std::string longOne = "<!DOCTYPE a [<!ENTITY e '" + std::string(100'000, 'x') + "'>]>";
  // Each node that is visited counts for one character more.
  const std::string most = repeated("&e;", 99) + std::string(10'000'000 - 99 * 100'002 - 1, 'y');
  ASSERT_TRUE(
      store.load(write(longOne + "<a><b u='" + repeated("&e;", 2000) + "' v='" + most + "y' w='" + most + "'/></a>")));
  said();
  for (const std::string name : {"u", "v"}) {
    EXPECT_EQ(store.getRoot("b")->getValue(name), "");
    EXPECT_EQ(said(), "Setting::getValue(): value of " + name + " is too long\n");
  }
  EXPECT_EQ(store.getRoot("b")->getValue("w").size(), 10'000'000U - 99 * 2 - 1);
}

TEST_F(Settings, WhatADocumentNamesIsNotFetched)
{
  std::ofstream(path("secret")) << "secret";
  const std::string external = "<!DOCTYPE a SYSTEM 'http://127.0.0.1:1/' [<!ENTITY s SYSTEM '" + path("secret") +
                               "'><!ENTITY % p SYSTEM '" + path("secret") + "'> %p;]>";
  ASSERT_TRUE(store.load(write(external + "<a><b v='1'>&s;</b></a>")));
  ASSERT_TRUE(store.save(path("out.xml")));
  EXPECT_EQ(saved().find(">secret<"), std::string::npos);
  EXPECT_FALSE(store.load(write("<!DOCTYPE a [<!ENTITY s SYSTEM '" + path("secret") + "'>]><a><b v='&s;'/></a>")));
}

TEST_F(Settings, FilesThatWouldKeepTheParserBusyAreRefused)
{
  std::string attributes;
  std::string namespaces;
  for (int i = 0; i < 200'000; ++i)
    attributes += " a" + std::to_string(i) + "=''";
  for (int i = 0; i < 2000; ++i)
    namespaces += " xmlns:a" + std::to_string(i) + "='u'";
  EXPECT_FALSE(store.load(write("<a><b" + attributes + "/></a>")));  // minutes, if it were read to its end
  EXPECT_TRUE(store.load(write("<a><b" + attributes.substr(0, attributes.find(" a1400=")) + "/></a>")));
  EXPECT_FALSE(store.load(write("<a" + namespaces + ">" + repeated("<a0:b/>", 10'000) + "</a>")));
  const std::string defaulted = "<!DOCTYPE a [<!ATTLIST b xmlns CDATA '" + std::string(100'000, 'x') + "'>]>";
  EXPECT_FALSE(store.load(write(defaulted + "<a>" + repeated("<b/>", 2000) + "</a>")));
  EXPECT_FALSE(store.load(write(repeated("<a>", 300) + repeated("</a>", 300))));
  EXPECT_TRUE(store.load(write("<a>" + repeated("<b v='1'/>", 100'000) + "</a>"))) << "a large one of the common kind";
  constexpr size_t most = 32 * 1024 * 1024;
  const std::string comments = repeated("<!--" + std::string(most / 32 - 7, 'c') + "-->", 31);
  EXPECT_TRUE(store.load(write(comments + "<a/>" + std::string(most - comments.size() - 4, ' '))));
  for (const size_t size : {most + 1, size_t{65'000'000'000}}) {
    std::filesystem::resize_file(path("in.xml"), size);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(store.load(path("in.xml")));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), path("in.xml") + ": not a readable file of at most 32 MiB\n");
  }
}

TEST_F(Settings, OnlyRegularFilesAreRead)
{
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  for (const std::string& file : {path("fifo"), folder, std::string("/dev/zero"), std::string("-"), std::string(),
                                  "file://" + write("<a/>"), std::string("http://127.0.0.1:1/a")})
    EXPECT_FALSE(store.load(file)) << file;
  EXPECT_FALSE(Storage::StorageMng().save(path("fifo"))) << "nobody reads it";
  const int reader = open(path("fifo").c_str(), O_RDWR | O_NONBLOCK);
  EXPECT_TRUE(Storage::StorageMng().save(path("fifo")));
  char got[100];
  EXPECT_EQ(read(reader, got, sizeof got), 56);
  close(reader);
}

TEST_F(Settings, AFailedSaveKeepsTheOldFile)
{
  for (int i = 0; i < 100; ++i)
    store.addRoot("a")->setValue("v", "1");
  std::ofstream(path("out.xml")) << "old";
  struct rlimit before = {};
  getrlimit(RLIMIT_FSIZE, &before);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  const struct rlimit tight = {512, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &tight);  // as good as a full disk
  EXPECT_FALSE(store.save(path("out.xml")));
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(saved(), "old");
  EXPECT_EQ(said(), "StorageMng::save(): error during saving the xml filen");
  EXPECT_FALSE(store.save(path("no/such/folder.xml")));
  EXPECT_FALSE(store.save("/dev/full"));
  EXPECT_FALSE(store.save(folder));
  EXPECT_EQ(entries(folder), 1) << "nothing is left lying about";
}

TEST_F(Settings, ASaveKeepsModeAndLinks)
{
  std::ofstream(path("out.xml")) << "old";
  const uid_t owner = geteuid() == 0 ? 54321 : geteuid();
  EXPECT_EQ(chown(path("out.xml").c_str(), owner, getegid()), 0);
  EXPECT_EQ(chmod(path("out.xml").c_str(), 04640), 0);
  std::filesystem::create_symlink("out.xml", path("link"));
  EXPECT_TRUE(store.save(path("link")));
  EXPECT_TRUE(std::filesystem::is_symlink(path("link")));
  struct stat kept = {};
  EXPECT_EQ(stat(path("out.xml").c_str(), &kept), 0);
  EXPECT_EQ(kept.st_uid, owner);
  EXPECT_EQ(kept.st_mode & 07777, 04640U);
  EXPECT_THAT(saved(), testing::HasSubstr("<Configuration/>"));
  const mode_t usual = umask(027);
  EXPECT_TRUE(store.save(path("new.xml")));
  umask(usual);
  EXPECT_EQ(std::filesystem::status(path("new.xml")).permissions(), std::filesystem::perms(0640));
}

// Nothing can be put in its place, so it is written itself.
TEST_F(Settings, AFileThatIsAMountPointIsSavedInPlace)
{
  write(std::string(1000, 'm'));
  std::ofstream(path("out.xml")) << "old";
  const int status = in_child([&] {
    const bool mounted = unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                         mount(path("in.xml").c_str(), path("out.xml").c_str(), nullptr, MS_BIND, nullptr) == 0;
    return !mounted ? 2 : store.save(path("out.xml")) ? 0 : 1;
  });
  if (status == 2 << 8)
    GTEST_SKIP() << "nothing can be mounted here";
  EXPECT_EQ(status, 0);
  EXPECT_EQ(saved(), "old");
  EXPECT_EQ(file_text(path("in.xml")), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Configuration/>\n");
  EXPECT_EQ(entries(folder), 2) << "nothing is left lying about";
}

// Where the folder is closed the file is written itself; where it is open, another's file becomes the process's own.
TEST_F(Settings, ASaveDoesWhatItsUserMay)
{
  if (geteuid() != 0)
    GTEST_SKIP() << "needs root";
  std::filesystem::create_directory(path("open"));
  std::filesystem::permissions(path("open"), std::filesystem::perms::all);
  const std::string files[] = {path("mine.xml"), path("read_only.xml"), path("open/suid.xml")};
  for (const std::string& file : files) {
    std::ofstream(file) << "old";
    EXPECT_EQ(chmod(file.c_str(), file == files[1] ? 0644 : 04666), 0);
  }
  EXPECT_EQ(in_child([&] {
              const bool other = setgid(65534) == 0 && setuid(65534) == 0;
              return other && store.save(files[0]) && !store.save(files[1]) && store.save(files[2]) ? 0 : 1;
            }),
            0);
  std::string left;
  for (const std::string& file : files) {
    struct stat kept = {};
    stat(file.c_str(), &kept);
    left += std::to_string(kept.st_uid) + " " + std::to_string(kept.st_mode & 07000) +
            (file_text(file) == "old" ? " old, " : ", ");
  }
  EXPECT_EQ(left, "0 0, 0 0 old, 65534 0, ");
}

TEST_F(Settings, NullHandlesAnswerEmpty)
{
  Storage::Setting null(nullptr);
  EXPECT_EQ(null.getValue("a"), "");
  null.setValue("a", "b");
  EXPECT_FALSE(null.getSubSetting("a") || null.getNext() || null.addSubSetting("a"));
  EXPECT_EQ(said(), "Setting::getValue(): node = 0\nSetting::setValue(): node = 0\nSetting::getSubSetting(): node = 0\n"
                    "Setting::getNext(): node = 0\nSetting::addSubSetting(): node = 0\n");
}

TEST(SettingsParser, IsCleanedUpWhenItsLastStoreEndsIfOneThreadUsedIt)
{
  using Storage::StorageMng;
  const own_folder own;
  const std::string file = own.path + "/out.xml";
  const auto inThread = [](const auto& work) { std::thread(work).join(); };
  const std::pair<int, std::function<void()>> uses[] = {
      {1, [] { StorageMng one, other; }},
      {1, [&] { StorageMng().save(file); }},
      {2, [&] { StorageMng().load(file); }},  // what is loaded replaces all there was
      {1,
       [&] {
         StorageMng one, other;
         one.load(file);
       }},
      {2,
       [&] {
         {
           StorageMng one;
         }
         inThread([] { StorageMng other; });
       }},
      {0,
       [&] {
         StorageMng one;
         inThread([] { StorageMng other; });
       }},
      {0,
       [&] {
         StorageMng one;
         inThread([&] { one.save(file); });
       }},
      {0, [&] {
         StorageMng one;
         inThread([&] { one.load(file); });
       }}};
  CaptureStdout();
  std::string wanted;
  std::string counted;
  for (const auto& [count, use] : uses) {
    wanted += std::to_string(count) + " ";
    cleanUps = 0;
    counted += std::to_string(in_child([&, run = use] { return run(), cleanUps; }) >> 8) + " ";
  }
  GetCapturedStdout();
  EXPECT_EQ(counted, wanted);
}

// Without a store that lives through it all, so that the clean-up after the last one comes in between.
TEST(SettingsOfThreads, DoNotMeet)
{
  const std::string folder = testing::TempDir();
  CaptureStdout();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&folder, t] {
      const std::string file = folder + "bll-settings-thread-" + std::to_string(t);
      for (int i = 0; i < 50; ++i) {
        Storage::StorageMng own;
        own.addRoot("b")->setValue("v", std::to_string(i));
        EXPECT_TRUE(own.save(file));
        EXPECT_TRUE(own.load(file));
        EXPECT_EQ(own.getRoot("b")->getValue("v"), std::to_string(i));
      }
      std::filesystem::remove(file);
    });
  for (std::thread& thread : threads)
    thread.join();
  GetCapturedStdout();
}

}  // namespace
