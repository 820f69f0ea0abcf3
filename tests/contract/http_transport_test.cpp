#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

#include "contract/transport_side.h"
#include "net/json_rpc_peer.h"
#include "support/log_capture.h"

namespace {

using namespace std::chrono_literals;
using net::Net_Error;

constexpr std::chrono::seconds patience{20};

/// A handler made of one function per "METHOD path".
class Table_Handler final : public net::Http_Handler {
 public:
  using Action = std::function<void(net::Server_Exchange&)>;
  std::map<std::string, Action> actions;
  Serve socket;
  std::string socket_target;
  std::string socket_key;

  void handle(net::Server_Exchange& exchange) override {
    const auto found = actions.find(exchange.method() + " " + exchange.target());
    if (found != actions.end()) return found->second(exchange);
    net::Http_Response response;
    response.status = 404;
    exchange.respond(response);
  }
  Serve accept_web_socket(const std::string& target, const net::Http_Headers& headers, unsigned& status) override {
    socket_target = target;
    if (const std::string* key = headers.find("authorization")) socket_key = *key;
    if (!socket) status = 401;
    return socket;
  }
};

/// `total` bytes of a known pattern; fails after `fail_at`.
class Pattern_Source final : public net::Body_Source {
 public:
  Pattern_Source(std::uint64_t total, bool known, std::uint64_t fail_at = UINT64_MAX)
      : total_(total), known_(known), fail_at_(fail_at) {}
  ssize_t read(char* buffer, std::size_t size) override {
    if (at_ >= fail_at_) return -1;
    const std::uint64_t end = std::min(total_, fail_at_);
    const std::size_t got = std::min<std::uint64_t>(size, end - at_);
    for (std::size_t i = 0; i < got; ++i) buffer[i] = byte_at(at_ + i);
    at_ += got;
    if (got == 0 && at_ < total_) return -1;
    return static_cast<ssize_t>(got);
  }
  std::optional<std::uint64_t> size() const override {
    return known_ ? std::optional<std::uint64_t>(total_) : std::nullopt;
  }
  static char byte_at(std::uint64_t position) { return static_cast<char>((position * 31 + (position >> 16)) & 0xff); }

 private:
  std::uint64_t total_;
  bool known_;
  std::uint64_t fail_at_;
  std::uint64_t at_ = 0;
};

class Pattern_Sink final : public net::Body_Sink {
 public:
  explicit Pattern_Sink(std::uint64_t give_up_at = UINT64_MAX) : give_up_at_(give_up_at) {}
  bool write(const char* data, std::size_t size) override {
    for (std::size_t i = 0; i < size; ++i) right = right && data[i] == Pattern_Source::byte_at(got + i);
    got += size;
    return got < give_up_at_;
  }
  std::uint64_t got = 0;
  bool right = true;

 private:
  std::uint64_t give_up_at_;
};

net::Http_Response answer(unsigned status, std::string body) {
  net::Http_Response response;
  response.status = status;
  response.body = std::move(body);
  return response;
}

class Http_Transport_Contract : public testing::TestWithParam<contract::Side_Name> {
 protected:
  Table_Handler handler;
  support::Log_Capture log;
  std::unique_ptr<contract::Transport_Side> side = GetParam().make(handler);
  Net_Error error;
  net::Http_Response response;

  std::unique_ptr<net::Http_Connection> connect() {
    auto connection = side->transport().connect(side->endpoint(), patience, error);
    EXPECT_NE(connection, nullptr) << error.text;
    return connection;
  }
  std::unique_ptr<net::Web_Socket> open_socket() {
    return side->transport().open_web_socket(side->endpoint(), "/q5/rpc", secure_string("k1"), patience, error);
  }
  static net::Http_Request make(const std::string& method, const std::string& target, std::string body = {}) {
    net::Http_Request request;
    request.method = method;
    request.target = target;
    request.body = std::move(body);
    return request;
  }
};

TEST_P(Http_Transport_Contract, Carries_Method_Target_Fields_And_Bodies) {
  handler.actions["POST /a/b?c=d%20e"] = [](net::Server_Exchange& exchange) {
    std::string body;
    ASSERT_TRUE(exchange.read_body(body));
    ASSERT_NE(exchange.headers().find("x-one"), nullptr);
    net::Http_Response reply = answer(201, body + "+" + *exchange.headers().find("X-ONE"));
    reply.headers.set("X-Two", "2 and more");
    EXPECT_EQ(exchange.peer_address(), "127.0.0.1");
    exchange.respond(reply);
  };
  auto connection = connect();
  net::Http_Request request = make("POST", "/a/b?c=d%20e", "payload");
  request.headers.set("X-One", "1");
  ASSERT_TRUE(connection->exchange(request, response, patience, error)) << error.text;
  EXPECT_EQ(response.status, 201U);
  EXPECT_EQ(response.body, "payload+1");
  ASSERT_NE(response.headers.find("x-two"), nullptr);
  EXPECT_EQ(*response.headers.find("x-two"), "2 and more");
}

TEST_P(Http_Transport_Contract, Carries_Every_Method) {
  auto connection = connect();
  for (const char* method : {"GET", "POST", "PUT", "PATCH", "DELETE"}) {
    handler.actions[std::string(method) + " /m"] = [](net::Server_Exchange& exchange) {
      std::string body;
      ASSERT_TRUE(exchange.read_body(body));
      exchange.respond(answer(200, exchange.method() + body));
    };
    ASSERT_TRUE(connection->exchange(make(method, "/m", "x"), response, patience, error)) << method << error.text;
    EXPECT_EQ(response.body, std::string(method) + "x");
  }
}

TEST_P(Http_Transport_Contract, Keeps_A_Connection_For_Many_Requests) {
  handler.actions["GET /n"] = [](net::Server_Exchange& exchange) { exchange.respond(answer(200, "ok")); };
  auto connection = connect();
  for (int i = 0; i < 100; ++i) {
    ASSERT_TRUE(connection->exchange(make("GET", "/n"), response, patience, error)) << i << error.text;
    EXPECT_EQ(response.body, "ok");
  }
}

TEST_P(Http_Transport_Contract, Gives_An_Answer_Without_A_Body) {
  handler.actions["DELETE /e"] = [](net::Server_Exchange& exchange) { exchange.respond(answer(204, "")); };
  auto connection = connect();
  for (int i = 0; i < 2; ++i) {
    ASSERT_TRUE(connection->exchange(make("DELETE", "/e"), response, patience, error)) << error.text;
    EXPECT_EQ(response.status, 204U);
    EXPECT_EQ(response.body, "");
  }
}

TEST_P(Http_Transport_Contract, Tells_The_Length_For_Head) {
  handler.actions["HEAD /h"] = [](net::Server_Exchange& exchange) {
    net::Http_Response head = answer(200, "");
    head.headers.set("Content-Length", "123456789");
    exchange.respond(head);
  };
  handler.actions["GET /n"] = [](net::Server_Exchange& exchange) { exchange.respond(answer(200, "ok")); };
  auto connection = connect();
  ASSERT_TRUE(connection->exchange(make("HEAD", "/h"), response, patience, error)) << error.text;
  ASSERT_NE(response.headers.find("Content-Length"), nullptr);
  EXPECT_EQ(*response.headers.find("Content-Length"), "123456789");
  EXPECT_EQ(response.body, "");
  ASSERT_TRUE(connection->exchange(make("GET", "/n"), response, patience, error)) << error.text;
  EXPECT_EQ(response.body, "ok");
}

TEST_P(Http_Transport_Contract, Streams_A_Request_Body) {
  for (const bool known : {true, false})
    for (const std::uint64_t size : {0UL, 1UL, 65536UL, 5000001UL}) {
      SCOPED_TRACE(testing::Message() << known << " " << size);
      handler.actions["PUT /s"] = [size](net::Server_Exchange& exchange) {
        Pattern_Sink sink;
        EXPECT_TRUE(exchange.read_body(sink));
        EXPECT_EQ(sink.got, size);
        EXPECT_TRUE(sink.right);
        exchange.respond(answer(201, ""));
      };
      auto connection = connect();
      net::Http_Request request = make("PUT", "/s");
      Pattern_Source source(size, known);
      request.body_source = &source;
      ASSERT_TRUE(connection->exchange(request, response, patience, error)) << error.text;
      EXPECT_EQ(response.status, 201U);
    }
}

TEST_P(Http_Transport_Contract, Streams_An_Answer) {
  for (const bool known : {true, false})
    for (const std::uint64_t size : {0UL, 1UL, 65536UL, 5000001UL}) {
      SCOPED_TRACE(testing::Message() << known << " " << size);
      handler.actions["GET /s"] = [size, known](net::Server_Exchange& exchange) {
        Pattern_Source source(size, known);
        exchange.respond(answer(200, ""), source);
      };
      auto connection = connect();
      Pattern_Sink sink;
      ASSERT_TRUE(connection->exchange(make("GET", "/s"), response, sink, patience, error)) << error.text;
      EXPECT_EQ(sink.got, size);
      EXPECT_TRUE(sink.right);
      EXPECT_EQ(response.body, "");
    }
}

TEST_P(Http_Transport_Contract, Puts_The_Body_Of_A_Refusal_Into_The_Response) {
  handler.actions["GET /s"] = [](net::Server_Exchange& exchange) { exchange.respond(answer(404, "no such thing")); };
  auto connection = connect();
  Pattern_Sink sink;
  ASSERT_TRUE(connection->exchange(make("GET", "/s"), response, sink, patience, error)) << error.text;
  EXPECT_EQ(response.status, 404U);
  EXPECT_EQ(response.body, "no such thing");
  EXPECT_EQ(sink.got, 0U);
}

TEST_P(Http_Transport_Contract, A_Request_Body_Whose_Source_Fails_Never_Looks_Whole) {
  for (const bool known : {true, false}) {
    SCOPED_TRACE(known);
    std::atomic<int> whole{0};
    std::atomic<bool> seen{false};
    handler.actions["PUT /s"] = [&](net::Server_Exchange& exchange) {
      Pattern_Sink sink;
      if (exchange.read_body(sink)) ++whole;
      seen = true;
      exchange.respond(answer(201, ""));
    };
    {
      auto connection = connect();
      net::Http_Request request = make("PUT", "/s");
      Pattern_Source source(3000000, known, 2000000);
      request.body_source = &source;
      EXPECT_FALSE(connection->exchange(request, response, patience, error));
      EXPECT_EQ(error.kind, Net_Error::body);
      EXPECT_FALSE(connection->exchange(make("GET", "/n"), response, patience, error));
    }
    while (!seen) std::this_thread::yield();
    EXPECT_EQ(whole, 0);
  }
}

TEST_P(Http_Transport_Contract, An_Answer_Whose_Source_Fails_Never_Looks_Whole) {
  for (const bool known : {true, false}) {
    SCOPED_TRACE(known);
    handler.actions["GET /s"] = [known](net::Server_Exchange& exchange) {
      Pattern_Source source(3000000, known, 2000000);
      exchange.respond(answer(200, ""), source);
    };
    auto connection = connect();
    Pattern_Sink sink;
    EXPECT_FALSE(connection->exchange(make("GET", "/s"), response, sink, patience, error));
    EXPECT_EQ(error.kind, Net_Error::closed) << error.text;
    EXPECT_LE(sink.got, 2000000U);
  }
}

TEST_P(Http_Transport_Contract, A_Sink_That_Gives_Up_Ends_The_Exchange) {
  handler.actions["GET /s"] = [](net::Server_Exchange& exchange) {
    Pattern_Source source(3000000, true);
    exchange.respond(answer(200, ""), source);
  };
  auto connection = connect();
  Pattern_Sink sink(100000);
  EXPECT_FALSE(connection->exchange(make("GET", "/s"), response, sink, patience, error));
  EXPECT_EQ(error.kind, Net_Error::body);
}

TEST_P(Http_Transport_Contract, Refuses_A_Body_Beyond_The_Limit) {
  handler.actions["POST /s"] = [](net::Server_Exchange& exchange) {
    std::string body = "old";
    const bool read = exchange.read_body(body, 1000);
    EXPECT_EQ(body.empty(), !read);
    exchange.respond(answer(read ? 200 : 413, ""));
  };
  struct Row {
    std::size_t size;
    bool streamed;
    unsigned status;
  };
  for (const Row row : {Row{1000, false, 200}, Row{1001, false, 413}, Row{1000, true, 200}, Row{1001, true, 413},
                        Row{8000000, true, 413}, Row{8000000, false, 413}}) {
    SCOPED_TRACE(testing::Message() << row.size << " " << row.streamed);
    auto connection = connect();
    net::Http_Request request = make("POST", "/s");
    Pattern_Source source(row.size, false);
    if (row.streamed)
      request.body_source = &source;
    else
      request.body.assign(row.size, 'x');
    ASSERT_TRUE(connection->exchange(request, response, patience, error)) << error.text;
    EXPECT_EQ(response.status, row.status);
  }
}

TEST_P(Http_Transport_Contract, A_Buffered_Answer_Beyond_The_Limit_Is_A_Failure) {
  handler.actions["GET /s"] = [](net::Server_Exchange& exchange) {
    Pattern_Source source(net::http_body_limit_bytes + 1, true);
    exchange.respond(answer(200, ""), source);
  };
  auto connection = connect();
  EXPECT_FALSE(connection->exchange(make("GET", "/s"), response, patience, error));
  EXPECT_EQ(error.kind, Net_Error::body);
  EXPECT_TRUE(response.body.empty());
}

TEST_P(Http_Transport_Contract, An_Answer_Before_The_Body_Was_Read_Arrives) {
  handler.actions["PUT /full"] = [](net::Server_Exchange& exchange) { exchange.respond(answer(507, "pool is full")); };
  auto connection = connect();
  net::Http_Request request = make("PUT", "/full");
  Pattern_Source source(50000000, true);
  request.body_source = &source;
  ASSERT_TRUE(connection->exchange(request, response, patience, error)) << error.text;
  EXPECT_EQ(response.status, 507U);
  EXPECT_EQ(response.body, "pool is full");
}

TEST_P(Http_Transport_Contract, A_Handler_That_Throws_Answers_500) {
  handler.actions["GET /t"] = [](net::Server_Exchange&) { throw std::runtime_error("broken"); };
  auto connection = connect();
  ASSERT_TRUE(connection->exchange(make("GET", "/t"), response, patience, error)) << error.text;
  EXPECT_EQ(response.status, 500U);
  EXPECT_EQ(log.claim_containing("Handling GET /t failed: broken"), 1U);
}

TEST_P(Http_Transport_Contract, A_Handler_Without_An_Answer_Answers_500) {
  handler.actions["GET /t"] = [](net::Server_Exchange&) {};
  auto connection = connect();
  ASSERT_TRUE(connection->exchange(make("GET", "/t"), response, patience, error)) << error.text;
  EXPECT_EQ(response.status, 500U);
}

TEST_P(Http_Transport_Contract, Characters_That_Would_Bend_The_Message_Are_Refused) {
  const std::vector<net::Http_Request> bad = [] {
    std::vector<net::Http_Request> requests{make("GET", "/a b"), make("GET", "/a\r\nX: y"), make("GET", "a"),
                                            make("GET", ""),     make("G T", "/a"),         make("", "/a")};
    requests.push_back(make("GET", "/a"));
    requests.back().headers.set("X", "a\r\nY: b");
    requests.push_back(make("GET", "/a"));
    requests.back().headers.set("X: y", "a");
    return requests;
  }();
  for (const net::Http_Request& request : bad) {
    auto connection = connect();
    EXPECT_FALSE(connection->exchange(request, response, patience, error)) << request.target;
    EXPECT_EQ(error.kind, Net_Error::protocol);
  }
}

TEST_P(Http_Transport_Contract, Serves_Many_Connections_At_Once) {
  handler.actions["POST /n"] = [](net::Server_Exchange& exchange) {
    std::string body;
    EXPECT_TRUE(exchange.read_body(body));
    exchange.respond(answer(200, body));
  };
  std::atomic<int> good{0};
  std::vector<std::thread> clients;
  constexpr int client_count = 16;
  constexpr int request_count = 20;
  for (int c = 0; c < client_count; ++c)
    clients.emplace_back([&, c] {
      Net_Error own_error;
      net::Http_Response own_response;
      auto connection = side->transport().connect(side->endpoint(), patience, own_error);
      for (int i = 0; connection && i < request_count; ++i) {
        const std::string text = std::to_string(c * 1000 + i);
        const bool answered = connection->exchange(make("POST", "/n", text), own_response, patience, own_error);
        EXPECT_TRUE(answered) << own_error.text;
        if (answered && own_response.body == text) ++good;
      }
    });
  for (std::thread& client : clients) client.join();
  EXPECT_EQ(good, client_count * request_count);
}

TEST_P(Http_Transport_Contract, A_Web_Socket_Carries_Texts_Both_Ways_In_Order) {
  handler.socket = [](net::Web_Socket& socket) {
    std::string text;
    Net_Error ignored;
    while (socket.receive(text, ignored)) ASSERT_TRUE(socket.send("<" + text + ">", ignored));
  };
  auto socket = open_socket();
  ASSERT_NE(socket, nullptr) << error.text;
  EXPECT_EQ(handler.socket_target, "/q5/rpc");
  EXPECT_EQ(handler.socket_key, "Bearer k1");
  const std::string large(3000000, 'x');
  for (const std::string& text : {std::string("a"), std::string(), std::string("\xc3\xa4"), large})
    ASSERT_TRUE(socket->send(text, error)) << error.text;
  std::string got;
  for (const std::string& text : {std::string("a"), std::string(), std::string("\xc3\xa4"), large}) {
    ASSERT_TRUE(socket->receive(got, error)) << error.text;
    EXPECT_EQ(got, "<" + text + ">");
  }
}

TEST_P(Http_Transport_Contract, A_Refused_Web_Socket_Tells_The_Status) {
  EXPECT_EQ(open_socket(), nullptr);
  EXPECT_EQ(error.kind, Net_Error::protocol);
  EXPECT_NE(error.text.find("401"), std::string::npos) << error.text;
}

TEST_P(Http_Transport_Contract, Closing_A_Web_Socket_Wakes_The_Receiver_At_Both_Ends) {
  std::atomic<bool> served{false};
  handler.socket = [&](net::Web_Socket& socket) {
    std::string text;
    Net_Error ignored;
    EXPECT_FALSE(socket.receive(text, ignored));
    EXPECT_FALSE(socket.send("late", ignored));
    served = true;
  };
  auto socket = open_socket();
  ASSERT_NE(socket, nullptr) << error.text;
  std::thread receiver([&] {
    std::string text;
    Net_Error own_error;
    EXPECT_FALSE(socket->receive(text, own_error));
    EXPECT_EQ(own_error.kind, Net_Error::closed);
  });
  socket->close();
  socket->close();
  receiver.join();
  EXPECT_FALSE(socket->send("late", error));
  socket.reset();
  while (!served) std::this_thread::yield();
}

TEST_P(Http_Transport_Contract, A_Server_That_Ends_The_Socket_Is_Noticed) {
  handler.socket = [](net::Web_Socket& socket) {
    Net_Error ignored;
    EXPECT_TRUE(socket.send("last", ignored));
  };
  auto socket = open_socket();
  ASSERT_NE(socket, nullptr) << error.text;
  std::string text;
  ASSERT_TRUE(socket->receive(text, error)) << error.text;
  EXPECT_EQ(text, "last");
  EXPECT_FALSE(socket->receive(text, error));
  EXPECT_EQ(error.kind, Net_Error::closed);
}

TEST_P(Http_Transport_Contract, A_Web_Socket_Is_Sent_To_From_Many_Threads) {
  constexpr int thread_count = 4;
  constexpr int message_count = 50;
  std::atomic<int> got{0};
  handler.socket = [&](net::Web_Socket& socket) {
    std::string text;
    Net_Error ignored;
    while (got < thread_count * message_count && socket.receive(text, ignored)) ++got;
    EXPECT_TRUE(socket.send("done", ignored));
  };
  auto socket = open_socket();
  ASSERT_NE(socket, nullptr) << error.text;
  std::vector<std::thread> senders;
  for (int t = 0; t < thread_count; ++t)
    senders.emplace_back([&] {
      Net_Error own_error;
      for (int i = 0; i < message_count; ++i) EXPECT_TRUE(socket->send("m", own_error)) << own_error.text;
    });
  for (std::thread& sender : senders) sender.join();
  std::string text;
  ASSERT_TRUE(socket->receive(text, error)) << error.text;
  EXPECT_EQ(got, thread_count * message_count);
}

TEST_P(Http_Transport_Contract, Json_Rpc_Runs_Both_Ways_Over_One_Socket) {
  const auto add = [](const std::string& method, const json_spirit::Value& params) {
    JSON_RPC_Answer sum;
    sum.ok = method == "add";
    if (sum.ok) sum.result = params.get_array()[0].get_int() + params.get_array()[1].get_int();
    sum.code = JSON_RPC_E_METHOD_NOT_FOUND;
    sum.message = "no " + method;
    return sum;
  };
  handler.socket = [](net::Web_Socket& socket) {
    JSON_RPC_Peer* self = nullptr;
    // Answering "twice" needs a call back over the same socket: it would hang if requests ran on the reader.
    JSON_RPC_Peer peer(socket, [&self](const std::string&, const json_spirit::Value& params) {
      return self->call("add", json_spirit::Array{params.get_array()[0], params.get_array()[0]}, patience);
    });
    self = &peer;
    peer.serve();
  };
  auto socket = open_socket();
  ASSERT_NE(socket, nullptr) << error.text;
  JSON_RPC_Peer peer(*socket, add);
  std::thread reader([&] { peer.serve(); });
  for (int i = 0; i < 20; ++i) {
    const JSON_RPC_Answer twice = peer.call("twice", json_spirit::Array{i}, patience);
    ASSERT_TRUE(twice.ok) << twice.message;
    EXPECT_EQ(twice.result.get_int(), 2 * i);
  }
  peer.close();
  reader.join();
  EXPECT_EQ(peer.call("twice", json_spirit::Array{1}, patience).code, JSON_RPC_E_NOT_CONNECTED);
}

INSTANTIATE_TEST_SUITE_P(Sides, Http_Transport_Contract,
                         testing::Values(contract::Side_Name{"Fake", contract::make_fake_side},
                                         contract::Side_Name{"Tcp", contract::make_tcp_side},
                                         contract::Side_Name{"Tls", contract::make_tls_side}),
                         [](const auto& row) { return row.param.name; });

}  // namespace
