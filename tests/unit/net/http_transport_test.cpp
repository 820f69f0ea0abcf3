#include "net/http_transport.h"

#include <gtest/gtest.h>

#include "support/fake_http_transport.h"

namespace {

TEST(Parse_Endpoint, Reads_Scheme_Host_And_Port) {
  struct Row {
    const char* url;
    net::Endpoint endpoint;
  };
  for (const Row& row : {Row{"http://h", {false, "h", 80, "ca"}}, Row{"https://h", {true, "h", 443, "ca"}},
                         Row{"https://127.0.0.1:9000/q5", {true, "127.0.0.1", 9000, "ca"}},
                         Row{"http://[::1]:1", {false, "::1", 1, "ca"}}}) {
    net::Endpoint endpoint;
    endpoint.ca_file = "ca";
    ASSERT_TRUE(net::parse_endpoint(row.url, endpoint)) << row.url;
    EXPECT_EQ(endpoint, row.endpoint) << row.url;
  }
}

TEST(Parse_Endpoint, Refuses_Other_Urls_And_Leaves_The_Endpoint_Alone) {
  const net::Endpoint before{true, "kept", 7, ""};
  net::Endpoint endpoint = before;
  for (const char* url : {"", "h:80", "ftp://h", "file:///dir", "http://", "http:///p"}) {
    EXPECT_FALSE(net::parse_endpoint(url, endpoint)) << url;
    EXPECT_EQ(endpoint, before) << url;
  }
}

TEST(Http_Transport, Is_Replaced_For_A_Scope_Only) {
  net::Http_Transport& real = net::Http_Transport::current();
  support::Scripted_Http_Handler handler;
  {
    support::Fake_Http_Transport fake(handler);
    EXPECT_EQ(&net::Http_Transport::current(), &fake);
  }
  EXPECT_EQ(&net::Http_Transport::current(), &real);
}

TEST(Endpoint, Is_Private_By_TLS_Or_When_It_Does_Not_Leave_The_Machine) {
  for (const char* url :
       {"http://127.0.0.1:1", "http://127.9.9.9", "http://localhost:8443", "http://[::1]:1", "https://b"}) {
    net::Endpoint endpoint;
    ASSERT_TRUE(net::parse_endpoint(url, endpoint)) << url;
    EXPECT_TRUE(endpoint.is_private()) << url << endpoint.host;
  }
  for (const char* url : {"http://b:8443", "http://0.0.0.0", "http://10.0.0.1", "http://127.0.0.1.example.com"}) {
    net::Endpoint endpoint;
    ASSERT_TRUE(net::parse_endpoint(url, endpoint)) << url;
    EXPECT_FALSE(endpoint.is_private()) << url;
  }
}

}  // namespace
