// The status server's requests, and peers that it must not care about.
#include "platform/kvbridge/record_header.h"
#include "pppoeia/status/bridge_status.h"
#include "pppoeia/status/http_request.h"
#include "pppoeia/status/http_server.h"
#include "pppoeia/status/status_server.h"
#include "tests/support/files.h"
#include "tests/support/http_get.h"
#include "tests/support/syslog_capture.h"

#include <arpa/inet.h>
#include <atomic>
#include <ctime>
#include <gmock/gmock.h>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::Pair;
using testing::StartsWith;

request_state read(const std::string& text, http_request& request)
{
  return http_request_read(text, request);
}

TEST(HttpRequest, IsReadWhenItsHeadIsThere)
{
  http_request request;
  const std::string whole = "GET /li%6ees?bridge=%62r%200&port=3&empty HTTP/1.1\r\nHost: a\r\n"
                            "accept: application/openmetrics-text;version=1.0.0\r\n\r\n";
  for (size_t size = 0; size < whole.size(); ++size)
    ASSERT_EQ(read(whole.substr(0, size), request), request_state::incomplete) << size;
  ASSERT_EQ(read(whole, request), request_state::complete);
  EXPECT_EQ(request.path, "/lines");
  EXPECT_THAT(request.values, ElementsAre(Pair("bridge", "br 0"), Pair("port", "3"), Pair("empty", "")));
  EXPECT_TRUE(request.wants_openmetrics);
  EXPECT_EQ(read("GET / HTTP/1.0\r\nAccept: text/plain\r\nX: application/openmetrics-text\r\n\r\n", request),
            request_state::complete);
  EXPECT_FALSE(request.wants_openmetrics);
}

TEST(HttpRequest, IsRefusedWhenItIsNone)
{
  http_request request;
  for (const char* wrong :
       {"\r\n\r\n", "GET\r\n\r\n", "GET / \r\n\r\n", "GET / FTP/1.1\r\n\r\n", "GET x HTTP/1.1\r\n\r\n",
        "GET /%zz HTTP/1.1\r\n\r\n", "GET /% HTTP/1.1\r\n\r\n", "GET /?a=%1 HTTP/1.1\r\n\r\n"})
    EXPECT_EQ(read(wrong, request), request_state::wrong) << wrong;
  EXPECT_EQ(read("POST / HTTP/1.1\r\n\r\n", request), request_state::wrong_method);
  EXPECT_EQ(read(std::string(8191, 'x'), request), request_state::incomplete);
  EXPECT_EQ(read(std::string(8192, 'x'), request), request_state::wrong);
}

// Parts without an end, as a monitor's.
class endless_body : public http_body {
public:
  static inline std::atomic<int> asked{0};
  more next(std::string& to) override
  {
    ++asked;
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
        server.serve(std::chrono::minutes(10));
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

std::string refusal(const std::string& reason, const std::string& more = "")
{
  return "HTTP/1.1 " + reason + "\r\nContent-Type: text/plain\r\nConnection: close\r\n" + more + "\r\n" +
         reason.substr(4) + "\n";
}

TEST_F(HttpServer, AnswersAndRefuses)
{
  const descriptor slow = http_connect(path);
  send(slow.get(), "G", 1, MSG_NOSIGNAL);
  EXPECT_EQ(http_exchange(path, "GET / HTTP/1.1\r\n\r\n"),
            "HTTP/1.1 200 OK\r\nContent-Type: text/plain; charset=utf-8\r\nConnection: close\r\n"
            "Content-Length: 5\r\n\r\nhere\n");
  EXPECT_EQ(http_get(path, "/large").size(), 600'000u);
  EXPECT_EQ(http_exchange(path, "GET /../etc/passwd%00 HTTP/1.1\r\n\r\n"), refusal("404 Not Found"));
  EXPECT_EQ(http_exchange(path, "DELETE / HTTP/1.1\r\n\r\n"), refusal("405 Method Not Allowed", "Allow: GET\r\n"));
  EXPECT_EQ(http_exchange(path, std::string("\0\xff\r\n\r\n", 6)), refusal("400 Bad Request"));
  EXPECT_THAT(http_exchange(path, "GET /" + std::string(http_request_most, 'a')), StartsWith("HTTP/1.1 400 "));
  send(slow.get(), "ET / HTTP/1.1\r\n\r\n", 18, MSG_NOSIGNAL);
  EXPECT_THAT(http_rest(slow.get()), testing::EndsWith("\r\n\r\nhere\n"));
  errno = 0;
  EXPECT_FALSE(server.listen_at_path("/nowhere/status"));
  EXPECT_EQ(errno, ENOENT);
}

// Again at once, while the connections of before are not forgotten yet.
TEST(HttpAddress, IsServedAndGivenBack)
{
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(9411);
  to.sin_addr.s_addr = htonl(0x7f4d0000u | (static_cast<uint32_t>(getpid()) & 0xffff));  // this test's own
  const std::string address = std::string(inet_ntoa(to.sin_addr)) + ":9411";
  const auto open_before = entries("/proc/self/fd");
  for (int round = 0; round < 2; ++round) {
    http_server serving([](const http_request&) { return http_answer{.text = "here\n"}; });
    for (const char* wrong : {"127.0.0.1", "127.0.0.1:", "127.0.0.1:x", "127.0.0.1:65536", "127.0.0.1:1 ", "me:1"}) {
      EXPECT_FALSE(serving.listen_at_address(wrong));
      EXPECT_EQ(errno, EINVAL) << wrong;
    }
    ASSERT_TRUE(serving.listen_at_address(address)) << strerror(errno);
    EXPECT_FALSE(serving.listen_at_address(address));
    EXPECT_EQ(errno, EADDRINUSE);
    const descriptor peer(socket(AF_INET, SOCK_STREAM, 0));
    ASSERT_EQ(connect(peer.get(), reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
    send(peer.get(), "GET / HTTP/1.1\r\n\r\n", 19, MSG_NOSIGNAL);
    serving.serve(std::chrono::minutes(10));
    EXPECT_THAT(http_rest(peer.get()), testing::EndsWith("here\n"));
  }
  EXPECT_EQ(entries("/proc/self/fd"), open_before);
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
  ASSERT_EQ(http_get(path, "/"), "here\n");
  EXPECT_EQ(send(half.get(), "\r\n\r\n", 4, MSG_NOSIGNAL), 4) << "what follows is not looked at";
  ASSERT_EQ(shutdown(half.get(), SHUT_WR), 0);
  ASSERT_EQ(http_get(path, "/"), "here\n");
  const std::clock_t before = std::clock();
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 5) << "the server looks at it again and again";
  EXPECT_THAT(http_rest(half.get()), testing::EndsWith(std::string(600'000, 'x')));
}

TEST_F(HttpServer, EndlessAnswersAreFewAndKeepNobodyOut)
{
  const std::string request = "GET /endless HTTP/1.1\r\n\r\n";
  std::string wanted = "HTTP/1.1 200 OK\r\nContent-Type: text/plain; charset=utf-8\r\nConnection: close\r\n\r\n";
  for (int part = 0; part < 3; ++part)
    wanted += "more\n";
  const auto is_served = [&](const descriptor& reader) {
    std::string came(wanted.size(), ' ');
    send(reader.get(), request.data(), request.size(), MSG_NOSIGNAL);
    return recv(reader.get(), came.data(), came.size(), MSG_WAITALL) > 0 && came == wanted;
  };
  std::vector<descriptor> readers;
  for (size_t i = 0; i < 8; ++i) {
    readers.push_back(http_connect(path));
    ASSERT_TRUE(is_served(readers.back()));
  }
  EXPECT_LT(endless_body::asked, 5000) << "once in some 20 ms";
  EXPECT_EQ(http_exchange(path, request), refusal("503 Service Unavailable"));
  EXPECT_EQ(http_get(path, "/"), "here\n");
  readers.pop_back();  // who leaves makes room
  bool served = false;
  for (int tries = 0; tries < 200 && !served; ++tries)
    served = is_served(http_connect(path));
  EXPECT_TRUE(served);
}

TEST(StatusServer, HasAPageForEachReportAndSaysWhatItCannotServe)
{
  const own_folder folder;
  const std::string path = folder.path + "/status";
  setenv("PPPOEIA_STATUS_SOCKET", path.c_str(), 1);
  setenv("PPPOEIA_STATUS_LISTEN", "nowhere", 1);
  bridge_status* const bridge = bridge_statuses::open("br0", 1);
  unsigned char record[kernel_header::size + 60] = {};
  for (int i = 0; i < 11; ++i)
    bridge->frame_done({record, sizeof record, sizeof record}, {.what = fate::role, .code = 0x07, .port = 1}, 1);
  syslog_take();
  status_begin();
  std::string told;
  for (const std::string page : {"/metrics HTTP/1.1", "/metrics HTTP/1.1\r\nAccept: application/openmetrics-text",
                                 "/lines HTTP/1.1", "/lines?port=x HTTP/1.1", "/drops HTTP/1.1",
                                 "/drops?port=x HTTP/1.1", "/monitor?port=x HTTP/1.1", "/nothing HTTP/1.1"}) {
    const std::string answer = http_exchange(path, "GET " + page + "\r\n\r\n");
    told += answer.substr(9, answer.find("\r\nConnection") - 9) + "\n";
  }
  EXPECT_EQ(told, "200 OK\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\n"
                  "200 OK\r\nContent-Type: application/openmetrics-text; version=1.0.0; charset=utf-8\n"
                  "200 OK\r\nContent-Type: application/json\n400 Bad Request\r\nContent-Type: text/plain\n"
                  "200 OK\r\nContent-Type: application/json\n400 Bad Request\r\nContent-Type: text/plain\n"
                  "400 Bad Request\r\nContent-Type: text/plain\n404 Not Found\r\nContent-Type: text/plain\n");
  EXPECT_EQ(http_get(path, "/healthz"), "ok\n") << "its worker is yet to come";
  const auto now = static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  bridge->alive_ns.set(now);
  EXPECT_EQ(http_get(path, "/healthz"), "ok\n");
  bridge->alive_ns.set(now - 5'000'000'000);
  EXPECT_EQ(http_exchange(path, "GET /healthz HTTP/1.1\r\n\r\n"), refusal("503 Service Unavailable"));
  status_end();
  bridge_statuses::close(bridge);
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_THAT(syslog_take_texts(), ElementsAre("No status at 'nowhere': Invalid argument.",
                                               StartsWith("<br0> Port 1 drops frames, 11 in a minute: ")));
}

}  // namespace
