// The status server's requests, and peers that it must not care about.
#include "pppoeia/status/http_request.h"
#include "pppoeia/status/http_server.h"
#include "tests/support/files.h"
#include "tests/support/http_get.h"

#include <atomic>
#include <ctime>
#include <gmock/gmock.h>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::StartsWith;

request_state read(const std::string& text, http_request& request)
{
  return http_request_read(text, request);
}

TEST(HttpRequest, IsReadWhenItsHeadIsThere)
{
  http_request request;
  const std::string whole = "GET /li%6ees?bridge=br%200&port=3&empty HTTP/1.1\r\nHost: a\r\n"
                            "accept: application/openmetrics-text;version=1.0.0\r\n\r\n";
  for (size_t size = 0; size < whole.size(); ++size)
    ASSERT_EQ(read(whole.substr(0, size), request), request_state::incomplete) << size;
  ASSERT_EQ(read(whole, request), request_state::complete);
  EXPECT_EQ(request.path, "/lines");
  EXPECT_THAT(request.values, ElementsAre(Pair("bridge", "br 0"), Pair("port", "3"), Pair("empty", "")));
  EXPECT_TRUE(request.wants_openmetrics);
}

TEST(HttpRequest, IsRefusedWhenItIsNone)
{
  http_request request;
  for (const char* wrong :
       {"\r\n\r\n", "GET\r\n\r\n", "GET / \r\n\r\n", "GET / FTP/1.1\r\n\r\n", "GET x HTTP/1.1\r\n\r\n",
        "GET /%zz HTTP/1.1\r\n\r\n", "GET /% HTTP/1.1\r\n\r\n", "GET /?a=%1 HTTP/1.1\r\n\r\n"})
    EXPECT_EQ(read(wrong, request), request_state::wrong) << wrong;
  EXPECT_EQ(read("POST / HTTP/1.1\r\n\r\n", request), request_state::wrong_method);
  EXPECT_EQ(read(std::string(http_request_most, 'x'), request), request_state::wrong);
}

// Parts without an end, as a monitor's.
class endless_body : public http_body {
public:
  more next(std::string& to) override
  {
    to += "more\n";
    return more::later;
  }
  bool is_endless() const override { return true; }
};

class HttpServer : public testing::Test {
protected:
  HttpServer()
  {
    EXPECT_TRUE(server.listen_at_path(path));
    thread = std::thread([this] {
      while (!stop)
        server.serve(std::chrono::seconds(1));
    });
  }
  ~HttpServer() override
  {
    stop = true;
    server.wake();
    thread.join();
  }

  static http_answer answer(const http_request& request)
  {
    if (request.path == "/endless")
      return {.rest = std::make_unique<endless_body>()};
    if (request.path == "/large")
      return {.text = std::string(600'000, 'x')};
    return request.path == "/" ? http_answer{.text = "here\n"} : http_answer{.status = 404};
  }

  own_folder folder;
  const std::string path = folder.path + "/status";
  http_server server{answer};
  std::atomic<bool> stop{false};
  std::thread thread;
};

TEST_F(HttpServer, AnswersAndRefuses)
{
  EXPECT_EQ(http_get(path, "/"), "here\n");
  EXPECT_EQ(http_get(path, "/large").size(), 600'000u);
  EXPECT_THAT(http_exchange(path, "GET /../etc/passwd%00 HTTP/1.1\r\n\r\n"), StartsWith("HTTP/1.1 404 "));
  EXPECT_THAT(http_exchange(path, "DELETE / HTTP/1.1\r\n\r\n"), HasSubstr("Allow: GET\r\n"));
  EXPECT_THAT(http_exchange(path, std::string("\0\xff\r\n\r\n", 6)), StartsWith("HTTP/1.1 400 "));
  EXPECT_THAT(http_exchange(path, "GET /" + std::string(http_request_most, 'a')), StartsWith("HTTP/1.1 400 "));
}

TEST_F(HttpServer, PeersThatHangKeepNobodyOut)
{
  std::vector<descriptor> hanging;
  for (int i = 0; i < 1000; ++i) {
    hanging.push_back(http_connect(path));
    const std::string part = i % 2 ? "GET /large HTTP/1.1\r\n\r\n" : "GET /";
    ASSERT_EQ(send(hanging.back().get(), part.data(), part.size(), MSG_NOSIGNAL), static_cast<ssize_t>(part.size()));
    if (i % 100 == 0) {
      ASSERT_EQ(http_get(path, "/"), "here\n") << i;
    }
  }
  EXPECT_EQ(http_get(path, "/"), "here\n");
}

TEST_F(HttpServer, PeerThatHasClosedItsSideAndDoesNotReadCostsNothing)
{
  const descriptor half = http_connect(path);
  const std::string request = "GET /large HTTP/1.1\r\n\r\n";
  ASSERT_EQ(send(half.get(), request.data(), request.size(), MSG_NOSIGNAL), static_cast<ssize_t>(request.size()));
  ASSERT_EQ(shutdown(half.get(), SHUT_WR), 0);
  ASSERT_EQ(http_get(path, "/"), "here\n");
  const std::clock_t before = std::clock();
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 5) << "the server looks at it again and again";
  std::string answer;
  char part[65536];
  for (ssize_t size; (size = recv(half.get(), part, sizeof part, 0)) > 0;)
    answer.append(part, static_cast<size_t>(size));
  EXPECT_THAT(answer, testing::EndsWith(std::string(600'000, 'x')));
}

TEST_F(HttpServer, EndlessAnswersAreFewAndKeepNobodyOut)
{
  std::vector<descriptor> readers;
  const std::string request = "GET /endless HTTP/1.1\r\n\r\n";
  char begin[13] = {};
  for (size_t i = 0; i < http_server::endless_most; ++i) {
    readers.push_back(http_connect(path));
    send(readers.back().get(), request.data(), request.size(), MSG_NOSIGNAL);
    ASSERT_EQ(recv(readers.back().get(), begin, sizeof begin - 1, MSG_WAITALL), 12);
    EXPECT_STREQ(begin, "HTTP/1.1 200");
  }
  EXPECT_THAT(http_exchange(path, request), StartsWith("HTTP/1.1 503 "));
  EXPECT_EQ(http_get(path, "/"), "here\n");
  readers.pop_back();  // who leaves makes room
  const auto is_served = [&] {
    const descriptor again = http_connect(path);
    send(again.get(), request.data(), request.size(), MSG_NOSIGNAL);
    return recv(again.get(), begin, sizeof begin - 1, MSG_WAITALL) == 12 && std::string(begin) == "HTTP/1.1 200";
  };
  bool served = false;
  for (int tries = 0; tries < 200 && !served; ++tries)
    served = is_served();
  EXPECT_TRUE(served);
}

}  // namespace
