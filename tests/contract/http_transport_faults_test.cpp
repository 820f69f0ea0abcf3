#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "contract/transport_side.h"
#include "net/beast_transport.h"
#include "platform/clock.h"
#include "platform/secure_string.h"
#include "support/freed_memory_watch.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

// What only a real network can show: hostile bytes on either side, certificates, a server that stops.

namespace {

using namespace std::chrono_literals;
using net::Net_Error;

constexpr std::chrono::seconds patience{20};

class Echo_Handler final : public net::Http_Handler {
 public:
  std::atomic<int> handled{0};
  std::function<void()> while_handling;

  void handle(net::Server_Exchange& exchange) override {
    if (while_handling) while_handling();
    net::Http_Response response;
    response.status = exchange.read_body(response.body) ? 200 : 413;
    ++handled;
    exchange.respond(response);
  }
  Serve accept_web_socket(const std::string&, const net::Http_Headers&, unsigned& status) override {
    status = 404;
    return {};
  }
};

/// Real time that tells when somebody waits for an event.
class Telling_Clock final : public platform::Clock {
 public:
  platform::Wait_Event somebody_waits;

  std::chrono::system_clock::time_point now() override { return real_.now(); }
  std::chrono::steady_clock::time_point steady_now() override { return real_.steady_now(); }
  void sleep_for(std::chrono::nanoseconds span) override { real_.sleep_for(span); }
  bool wait_for(platform::Wait_Event& event, std::chrono::nanoseconds limit) override {
    somebody_waits.set();
    return real_.wait_for(event, limit);
  }

 private:
  platform::Clock& real_ = platform::Clock::current();
};

sockaddr_in loopback(unsigned short port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

/// Sends `bytes` to a port and gives all that comes back until the end.
std::string talk(unsigned short port, const std::string& bytes, bool half_close = true) {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = loopback(port);
  EXPECT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t now = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (now <= 0) break;
    sent += static_cast<std::size_t>(now);
  }
  if (half_close) ::shutdown(fd, SHUT_WR);
  std::string got;
  char buffer[4096];
  for (ssize_t now; (now = ::recv(fd, buffer, sizeof buffer, 0)) > 0;)
    got.append(buffer, static_cast<std::size_t>(now));
  ::close(fd);
  return got;
}

/// A server of one connection that sends fixed bytes whatever it is asked, then closes.
class Raw_Server {
 public:
  explicit Raw_Server(std::string bytes, bool answers = true) : listener_(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address = loopback(0);
    EXPECT_EQ(::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(listener_, 1), 0);
    socklen_t size = sizeof address;
    EXPECT_EQ(::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size), 0);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this, bytes = std::move(bytes), answers] { serve(bytes, answers); });
  }
  ~Raw_Server() {
    ::shutdown(listener_, SHUT_RDWR);
    thread_.join();
    ::close(listener_);
  }
  [[nodiscard]] net::Endpoint endpoint() const { return {false, "127.0.0.1", port_, ""}; }

 private:
  int listener_;
  unsigned short port_ = 0;
  std::thread thread_;

  void serve(const std::string& bytes, bool answers) {
    const int fd = ::accept(listener_, nullptr, nullptr);
    if (fd < 0) return;
    char buffer[4096];
    std::string head;
    while (head.find("\r\n\r\n") == std::string::npos) {
      const ssize_t now = ::recv(fd, buffer, sizeof buffer, 0);
      if (now <= 0) break;
      head.append(buffer, static_cast<std::size_t>(now));
    }
    if (answers)
      (void)!::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    else
      (void)!::recv(fd, buffer, sizeof buffer, 0);  // until the client has given up
    ::close(fd);
  }
};

class Http_Transport_Faults : public testing::Test {
 protected:
  support::Log_Capture log;
  Net_Error error;
  net::Http_Response response;
  net::Http_Request request;

  bool ask(const net::Endpoint& endpoint, std::chrono::nanoseconds timeout = patience) {
    request.target = "/x";
    auto connection = net::beast_transport().connect(endpoint, timeout, error);
    return connection && connection->exchange(request, response, timeout, error);
  }
};

TEST_F(Http_Transport_Faults, A_Cut_Or_Malformed_Answer_Is_Never_Taken_For_A_Whole_One) {
  struct Row {
    const char* name;
    std::string bytes;
    Net_Error::Kind kind;
  };
  const std::vector<Row> rows = {
      {"nothing", "", Net_Error::closed},
      {"half a head", "HTTP/1.1 200 OK\r\nContent-Len", Net_Error::closed},
      {"half a body", "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n12345", Net_Error::closed},
      {"no last chunk", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n", Net_Error::closed},
      {"half a chunk", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nab", Net_Error::closed},
      {"length not given", "HTTP/1.1 200 OK\r\n\r\nabc", Net_Error::protocol},
      {"not HTTP", "hello there, this is something else\r\n\r\n", Net_Error::protocol},
      {"bad status", "HTTP/1.1 2x0 OK\r\nContent-Length: 0\r\n\r\n", Net_Error::protocol},
      {"bad length", "HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n", Net_Error::protocol},
      {"bad chunk", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\nabc\r\n0\r\n\r\n", Net_Error::protocol},
      {"huge head", "HTTP/1.1 200 OK\r\nX: " + std::string(200000, 'x') + "\r\n\r\n", Net_Error::protocol},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const Raw_Server server(row.bytes);
    EXPECT_FALSE(ask(server.endpoint()));
    EXPECT_EQ(error.kind, row.kind) << error.text;
    EXPECT_FALSE(error.text.empty());
  }
}

TEST_F(Http_Transport_Faults, An_Interim_Answer_Is_Passed_Over) {
  const Raw_Server server("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
  ASSERT_TRUE(ask(server.endpoint())) << error.text;
  EXPECT_EQ(response.body, "ok");
}

TEST_F(Http_Transport_Faults, A_Silent_Server_Times_Out) {
  const Raw_Server server("", false);
  EXPECT_FALSE(ask(server.endpoint(), 200ms));
  EXPECT_EQ(error.kind, Net_Error::timeout) << error.text;
}

TEST_F(Http_Transport_Faults, A_Closed_Port_And_An_Unknown_Host_Are_Told_Apart) {
  unsigned short port = 0;
  {
    const Raw_Server gone("");
    port = gone.endpoint().port;
  }
  EXPECT_FALSE(ask({false, "127.0.0.1", port, ""}));
  EXPECT_EQ(error.kind, Net_Error::connect) << error.text;
  EXPECT_NE(error.text.find("127.0.0.1:" + std::to_string(port)), std::string::npos) << error.text;
  EXPECT_FALSE(ask({false, "no such host.invalid", 80, ""}));
  EXPECT_EQ(error.kind, Net_Error::resolve) << error.text;
}

TEST_F(Http_Transport_Faults, Hostile_Requests_Get_A_Refusal_And_Reach_No_Handler) {
  Echo_Handler handler;
  net::Http_Server server(handler, {});
  std::string why;
  ASSERT_TRUE(server.start(why)) << why;
  struct Row {
    const char* name;
    std::string bytes;
    const char* status;
  };
  const std::vector<Row> rows = {
      {"not HTTP", "hello\r\n\r\n", "HTTP/1.1 400"},
      {"binary", std::string("\x16\x03\x01\x00\xa5\x01\x00\x00\xa1\x03\x03", 11), "HTTP/1.1 400"},
      {"huge head", "GET / HTTP/1.1\r\nX: " + std::string(200000, 'x') + "\r\n\r\n", "HTTP/1.1 431"},
      {"bad length", "POST / HTTP/1.1\r\nContent-Length: 1x\r\n\r\n", "HTTP/1.1 400"},
      {"two lengths", "POST / HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\nab", "HTTP/1.1 400"},
      {"length and chunks", "POST / HTTP/1.1\r\nContent-Length: 3\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n",
       "HTTP/1.1 400"},
      {"half a head", "GET / HTTP/1.1\r\nX: y", ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string got = talk(server.port(), row.bytes);
    EXPECT_EQ(got.substr(0, std::string(row.status).size()), row.status) << got;
    EXPECT_EQ(got.empty(), *row.status == '\0') << got;
  }
  EXPECT_EQ(handler.handled, 0);
}

TEST_F(Http_Transport_Faults, A_Cut_Request_Is_Not_Read_Whole) {
  Echo_Handler handler;
  net::Http_Server server(handler, {});
  std::string why;
  ASSERT_TRUE(server.start(why)) << why;
  for (const char* bytes : {"POST / HTTP/1.1\r\nContent-Length: 10\r\n\r\n12345",
                            "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nabcde\r\n"})
    EXPECT_EQ(talk(server.port(), bytes).substr(0, 12), "HTTP/1.1 413") << bytes;
}

TEST_F(Http_Transport_Faults, A_Request_Leaves_No_Key_In_The_Memory_It_Gives_Back) {
  Echo_Handler handler;
  net::Http_Server server(handler, {});
  std::string why;
  ASSERT_TRUE(server.start(why)) << why;
  const net::Endpoint endpoint{false, "127.0.0.1", server.port(), ""};
  const std::string key_text = "a key of more bytes than a short string holds";
  const secure_string key(key_text);
  const support::Freed_Memory_Watch watch(key_text);
  {
    net::Http_Request asking;
    asking.target = "/x";
    asking.headers.set_bearer(key);
    auto connection = net::beast_transport().connect(endpoint, patience, error);
    ASSERT_NE(connection, nullptr) << error.text;
    EXPECT_TRUE(connection->exchange(asking, response, patience, error)) << error.text;
  }
  EXPECT_EQ(watch.found(), 0U);
}

/// Looks for a text in what the server's threads give back, from their first request on to their end.
class Server_Thread_Watch {
 public:
  explicit Server_Thread_Watch(std::string_view text) : text_(text) {}
  /// On a thread of the server.
  void begin() {
    thread_local std::unique_ptr<Of_Thread> one;
    if (!one) one = std::make_unique<Of_Thread>(*this);
  }
  [[nodiscard]] std::size_t found() const { return found_; }
  [[nodiscard]] int threads() const { return threads_; }

 private:
  struct Of_Thread {
    explicit Of_Thread(Server_Thread_Watch& of_all) : all(of_all), watch(of_all.text_) {}
    ~Of_Thread() {
      all.found_ += watch.found();
      ++all.threads_;
    }
    Server_Thread_Watch& all;
    support::Freed_Memory_Watch watch;
  };

  std::string_view text_;
  std::atomic<std::size_t> found_{0};
  std::atomic<int> threads_{0};
};

TEST_F(Http_Transport_Faults, A_Server_Leaves_No_Key_In_The_Memory_It_Gives_Back) {
  const std::string key_text = "a key of more bytes than a short string holds";
  const std::string shown = "Authorization: Bearer " + key_text + "\r\n";
  const std::string requests[] = {
      "GET / HTTP/1.1\r\n" + shown + "Connection: close\r\n\r\n",
      "POST / HTTP/1.1\r\n" + shown + "Content-Length: 3\r\n\r\nabcPOST / HTTP/1.1\r\n" + shown +
          "Content-Length: 0\r\nConnection: close\r\n\r\n",
      "GET / HTTP/1.1\r\nX-Long: " + std::string(2000, 'x') + "\r\n" + shown + "Connection: close\r\n\r\n"};
  Server_Thread_Watch watch(key_text);
  {
    Echo_Handler handler;
    handler.while_handling = [&watch] { watch.begin(); };
    net::Http_Server server(handler, {});
    std::string why;
    ASSERT_TRUE(server.start(why)) << why;
    for (const std::string& bytes : requests)
      EXPECT_EQ(talk(server.port(), bytes).substr(0, 12), "HTTP/1.1 200") << bytes;
  }
  EXPECT_EQ(watch.threads(), 3);
  EXPECT_EQ(watch.found(), 0U);
}

/// Reads bodies as one does that expects a password in them.
class Wiping_Handler final : public net::Http_Handler {
 public:
  static constexpr std::size_t limit = 1U << 20;
  explicit Wiping_Handler(Server_Thread_Watch& watch) : watch_(watch) {}

  void handle(net::Server_Exchange& exchange) override {
    watch_.begin();
    net::Http_Response response;
    std::string body;
    response.status = exchange.read_body(body, limit) ? 200 : 413;
    platform::wipe_memory(body.data(), body.size());
    exchange.respond(response);
  }
  Serve accept_web_socket(const std::string&, const net::Http_Headers&, unsigned&) override { return {}; }

 private:
  Server_Thread_Watch& watch_;
};

TEST_F(Http_Transport_Faults, A_Server_Leaves_Nothing_Of_A_Body_In_The_Memory_It_Gives_Back) {
  const std::string secret = "a password of more bytes than a short string holds";
  const std::string post = "POST / HTTP/1.1\r\nConnection: close\r\n";
  const auto sized = [&](std::size_t promised, std::size_t sent) {
    return post + "Content-Length: " + std::to_string(promised) + "\r\n\r\n" + secret +
           std::string(sent - secret.size(), 'x');
  };
  const auto chunked = [&](std::size_t chunks) {
    std::string bytes = post + "Transfer-Encoding: chunked\r\n\r\n32\r\n" + secret + "\r\n";
    for (std::size_t i = 0; i < chunks; ++i) bytes += "8000\r\n" + std::string(0x8000, 'x') + "\r\n";
    return bytes + "0\r\n\r\n";
  };
  ASSERT_EQ(secret.size(), 0x32U);
  struct Row {
    const char* name;
    std::string bytes;
    const char* status;
  };
  for (const Row& row : {Row{"small", sized(100, 100), "200"}, Row{"in many segments", sized(600'000, 600'000), "200"},
                         Row{"broken", sized(600'000, 300'000), "413"}, Row{"chunked", chunked(8), "200"},
                         Row{"chunked beyond the limit", chunked(40), "413"}}) {
    SCOPED_TRACE(row.name);
    Server_Thread_Watch watch(secret);
    {
      Wiping_Handler handler(watch);
      net::Http_Server server(handler, {});
      std::string why;
      ASSERT_TRUE(server.start(why)) << why;
      EXPECT_EQ(talk(server.port(), row.bytes).substr(0, 12), std::string("HTTP/1.1 ") + row.status);
    }
    EXPECT_EQ(watch.threads(), 1);
    EXPECT_EQ(watch.found(), 0U);
  }
}

TEST_F(Http_Transport_Faults, A_Client_That_Asks_First_Is_Told_To_Go_On) {
  Echo_Handler handler;
  net::Http_Server server(handler, {});
  std::string why;
  ASSERT_TRUE(server.start(why)) << why;
  const std::string got = talk(server.port(),
                               "POST / HTTP/1.1\r\nExpect: 100-continue\r\nConnection: close\r\n"
                               "Content-Length: 2\r\n\r\nok");
  EXPECT_EQ(got.substr(0, 21), "HTTP/1.1 100 Continue") << got;
  EXPECT_NE(got.find("HTTP/1.1 200 OK"), std::string::npos) << got;
}

TEST_F(Http_Transport_Faults, Pipelined_Requests_Are_Answered_In_Order) {
  Echo_Handler handler;
  net::Http_Server server(handler, {});
  std::string why;
  ASSERT_TRUE(server.start(why)) << why;
  const std::string got = talk(server.port(),
                               "POST / HTTP/1.1\r\nContent-Length: 3\r\n\r\none"
                               "POST / HTTP/1.1\r\nContent-Length: 3\r\nConnection: close\r\n\r\ntwo");
  EXPECT_LT(got.find("one"), got.find("two")) << got;
  EXPECT_NE(got.find("two"), std::string::npos) << got;
}

TEST_F(Http_Transport_Faults, Stopping_Waits_For_A_Running_Request) {
  Echo_Handler handler;
  net::Http_Server server(handler, {});
  std::string why;
  ASSERT_TRUE(server.start(why)) << why;
  Telling_Clock clock;
  platform::Scoped_Clock scope(clock);
  platform::Wait_Event running;
  handler.while_handling = [&] {
    running.set();
    EXPECT_TRUE(clock.somebody_waits.wait_real(patience)) << "stop does not wait";
  };
  const net::Endpoint endpoint{false, "127.0.0.1", server.port(), ""};
  std::thread client([&] {
    request.body = "late";
    EXPECT_TRUE(ask(endpoint)) << error.text;
    EXPECT_EQ(response.body, "late");
  });
  EXPECT_TRUE(running.wait_real(patience));
  server.stop();
  client.join();
  EXPECT_FALSE(ask(endpoint));
}

TEST_F(Http_Transport_Faults, Stopping_Closes_Idle_Connections_At_Once) {
  Echo_Handler handler;
  net::Http_Server server(handler, {});
  std::string why;
  ASSERT_TRUE(server.start(why)) << why;
  auto connection = net::beast_transport().connect({false, "127.0.0.1", server.port(), ""}, patience, error);
  ASSERT_NE(connection, nullptr);
  request.target = "/x";
  ASSERT_TRUE(connection->exchange(request, response, patience, error)) << error.text;
  const auto begin = std::chrono::steady_clock::now();
  server.stop();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s);
  EXPECT_FALSE(connection->exchange(request, response, patience, error));
  EXPECT_EQ(error.kind, Net_Error::closed) << error.text;
}

TEST_F(Http_Transport_Faults, Connections_Beyond_The_Limit_Are_Refused_With_503) {
  Echo_Handler handler;
  net::Server_Options options;
  options.workers = 1;
  net::Http_Server server(handler, options);
  std::string why;
  ASSERT_TRUE(server.start(why)) << why;
  std::vector<std::unique_ptr<net::Http_Connection>> held;
  request.target = "/x";
  constexpr int limit = 32;
  for (int i = 0; i < limit; ++i) {
    held.push_back(net::beast_transport().connect({false, "127.0.0.1", server.port(), ""}, patience, error));
    ASSERT_TRUE(held.back() && held.back()->exchange(request, response, patience, error)) << error.text;
    EXPECT_EQ(response.status, 200U);
  }
  ASSERT_TRUE(ask({false, "127.0.0.1", server.port(), ""})) << error.text;
  EXPECT_EQ(response.status, 503U);
}

TEST_F(Http_Transport_Faults, A_Server_That_Cannot_Start_Says_Why) {
  Echo_Handler handler;
  support::Temp_Root root;
  std::string why;
  net::Server_Options options;
  options.address = "nowhere";
  EXPECT_FALSE(net::Http_Server(handler, options).start(why));
  EXPECT_EQ(why, "'nowhere' is not an IP address");

  options = {};
  options.certificate_file = "/etc/none.pem";
  options.private_key_file = "/etc/none.key";
  EXPECT_FALSE(net::Http_Server(handler, options).start(why));
  EXPECT_NE(why.find("cannot use the certificate /etc/none.pem"), std::string::npos) << why;

  net::Http_Server first(handler, {});
  ASSERT_TRUE(first.start(why)) << why;
  options = {};
  options.port = first.port();
  EXPECT_FALSE(net::Http_Server(handler, options).start(why));
  EXPECT_NE(why.find("cannot listen on 127.0.0.1 port " + std::to_string(first.port())), std::string::npos) << why;
}

class Tls_Faults : public Http_Transport_Faults {
 protected:
  support::Temp_Root root;
  Echo_Handler handler;
  std::unique_ptr<net::Http_Server> server;

  void SetUp() override {
    root.make_directory("/etc");
    contract::write_certificate("localhost", root.real("/etc/a.pem"), root.real("/etc/a.key"));
    contract::write_certificate("localhost", root.real("/etc/b.pem"), root.real("/etc/b.key"));
    contract::write_certificate("elsewhere.test", root.real("/etc/c.pem"), root.real("/etc/c.key"));
  }
  net::Endpoint serve(const std::string& name, const std::string& host, const std::string& trusted) {
    server.reset();
    net::Server_Options options;
    options.certificate_file = "/etc/" + name + ".pem";
    options.private_key_file = "/etc/" + name + ".key";
    server = std::make_unique<net::Http_Server>(handler, options);
    std::string why;
    EXPECT_TRUE(server->start(why)) << why;
    return {true, host, server->port(), trusted.empty() ? "" : "/etc/" + trusted + ".pem"};
  }
};

TEST_F(Tls_Faults, Only_A_Trusted_Certificate_Of_The_Right_Name_Is_Accepted) {
  struct Row {
    const char* name;
    const char* certificate;
    const char* host;
    const char* trusted;
    bool good;
  };
  for (const Row& row :
       {Row{"name", "a", "localhost", "a", true}, Row{"address", "a", "127.0.0.1", "a", true},
        Row{"other authority", "a", "localhost", "b", false}, Row{"system's authorities", "a", "localhost", "", false},
        Row{"other name", "c", "localhost", "c", false}, Row{"authority missing", "a", "localhost", "none", false}}) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(ask(serve(row.certificate, row.host, row.trusted)), row.good) << error.text;
    if (!row.good) {
      EXPECT_EQ(error.kind, Net_Error::tls) << error.text;
    }
  }
}

TEST_F(Tls_Faults, A_Plain_Client_And_A_Tls_Server_Do_Not_Understand_Each_Other) {
  net::Endpoint endpoint = serve("a", "127.0.0.1", "a");
  endpoint.tls = false;
  EXPECT_FALSE(ask(endpoint));
  EXPECT_EQ(handler.handled, 0);
}

TEST_F(Tls_Faults, A_Tls_Client_Reports_A_Plain_Server) {
  net::Http_Server plain(handler, {});
  std::string why;
  ASSERT_TRUE(plain.start(why)) << why;
  EXPECT_FALSE(ask({true, "127.0.0.1", plain.port(), "/etc/a.pem"}));
  EXPECT_EQ(error.kind, Net_Error::tls) << error.text;
}

}  // namespace
