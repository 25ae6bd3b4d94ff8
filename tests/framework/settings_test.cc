// The XML settings store.
#include "rte/BLL/core/storage_mng.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

namespace {

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

class Settings : public testing::Test {
protected:
  Settings()
  {
    char name[] = "/tmp/bll-settings.XXXXXX";
    folder = mkdtemp(name);
    CaptureStdout();
  }
  ~Settings() override
  {
    GetCapturedStdout();
    std::filesystem::remove_all(folder);
  }
  std::string path(const std::string& file) const { return folder + "/" + file; }
  std::string write(const std::string& content) const
  {
    std::ofstream(path("in.xml")) << content;
    return path("in.xml");
  }
  std::string saved() const
  {
    std::ifstream file(path("out.xml"));
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // What was said on standard output since the last time.
  static std::string said()
  {
    std::string text = GetCapturedStdout();
    CaptureStdout();
    return text;
  }

  std::string folder;
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
}

TEST_F(Settings, AnyTextIsReadBackAsItWasWritten)
{
  const std::string odd = "<&>\"' \t\n\r \xC3\xA9 \xF0\x9F\x98\x80 ]]> --";
  store.addRoot("a")->setValue("v", odd);
  store.addRoot("b")->setValue("v", std::string("\xFF\x01\0\xC3", 4));
  EXPECT_EQ(store.getRoot("b")->getValue("v"), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
  ASSERT_TRUE(store.save(path("out.xml")));
  Storage::StorageMng again;
  ASSERT_TRUE(again.load(path("out.xml")));
  EXPECT_EQ(again.getRoot("a")->getValue("v"), odd);
  EXPECT_EQ(again.getRoot("b")->getValue("v"), store.getRoot("b")->getValue("v"));
}

TEST_F(Settings, NamesThatXmlDoesNotAllowAreRefused)
{
  for (const char* name : {"", "a b", "1", "<", "a:b"})
    EXPECT_FALSE(store.addRoot(name)) << name;
  EXPECT_THAT(said(), testing::StartsWith("StorageMng::addRoot(): error during adding  to the document!\n"));
  const auto root = store.addRoot("a");
  EXPECT_FALSE(root->addSubSetting("b c"));
  EXPECT_EQ(said(), "Setting::addSubSetting(): error during adding b c to the node as child!\n");
  root->setValue("b c", "1");
  EXPECT_TRUE(store.save(path("out.xml")));
  EXPECT_TRUE(Storage::StorageMng().load(path("out.xml")));
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
  for (const char* content : {"", "<a>", "<a b='\xFF'/>", "not xml", "<a b='1' b='2'/>"})
    EXPECT_FALSE(store.load(write(content))) << content;
  EXPECT_FALSE(store.load(folder));
  EXPECT_TRUE(store.load(write("<a/>"))) << "and a good one is welcome again";
}

TEST_F(Settings, EntitiesNeitherGrowWithoutLimitNorFetch)
{
  std::string bomb = "<!DOCTYPE a [<!ENTITY e0 'lololololololololol'>";
  for (int i = 1; i < 12; ++i) {
    bomb += "<!ENTITY e" + std::to_string(i) + " '";
    for (int j = 0; j < 12; ++j)
      bomb += "&e" + std::to_string(i - 1) + ";";
    bomb += "'>";
  }
  EXPECT_FALSE(store.load(write(bomb + "]><a><b v='&e11;'/></a>")));
  store.load(write(bomb + "]><a><b v='1'>&e11;</b></a>"));  // never expanded: whichever way it is answered
  std::ofstream(path("secret")) << "secret";
  const std::string external = "<!DOCTYPE a [<!ENTITY s SYSTEM '" + path("secret") + "'>]><a><b v='1'>&s;</b></a>";
  ASSERT_TRUE(store.load(write(external)));
  store.save(path("out.xml"));
  EXPECT_EQ(saved().find(">secret<"), std::string::npos);
  EXPECT_FALSE(store.load(write("<!DOCTYPE a [<!ENTITY s SYSTEM '" + path("secret") + "'>]><a><b v='&s;'/></a>")));
}

TEST_F(Settings, AFailedSaveKeepsTheOldFile)
{
  std::ofstream(path("out.xml")) << "old";
  std::filesystem::create_directory(path("out.xml.new"));  // so that the new file cannot be made
  EXPECT_FALSE(store.save(path("out.xml")));
  EXPECT_EQ(saved(), "old");
  EXPECT_FALSE(store.save(path("no/such/folder.xml")));
  EXPECT_THAT(said(), testing::StartsWith("StorageMng::save(): error during saving the xml filen"));
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

TEST_F(Settings, StoresOfDifferentThreadsDoNotMeet)
{
  const std::string file = write("<a><b v='1'/></a>");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 50; ++i) {
        Storage::StorageMng own;
        EXPECT_TRUE(own.load(file));
        EXPECT_EQ(own.getRoot("b")->getValue("v"), "1");
        EXPECT_TRUE(own.save(path("out" + std::to_string(t))));
      }
    });
  for (std::thread& thread : threads)
    thread.join();
}

}  // namespace
