#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstdio>

#include "contract/transport_side.h"
#include "net/beast_transport.h"
#include "support/fake_http_transport.h"
#include "support/temp_root.h"

namespace contract {
namespace {

constexpr long day_seconds = 24L * 60 * 60;

class Fake_Side final : public Transport_Side {
 public:
  explicit Fake_Side(net::Http_Handler& handler) : fake_(handler) {}
  net::Http_Transport& transport() override { return fake_; }
  net::Endpoint endpoint() const override { return {false, "backupd.test", 9000, ""}; }

 private:
  support::Fake_Http_Transport fake_;
};

class Tcp_Side final : public Transport_Side {
 public:
  Tcp_Side(net::Http_Handler& handler, bool tls) : tls_(tls), server_(handler, options(tls)) {
    std::string error;
    EXPECT_TRUE(server_.start(error)) << error;
  }
  net::Http_Transport& transport() override { return net::beast_transport(); }
  net::Endpoint endpoint() const override { return {tls_, "127.0.0.1", server_.port(), tls_ ? "/etc/server.pem" : ""}; }

 private:
  support::Temp_Root root_;
  bool tls_;
  net::Http_Server server_;

  net::Server_Options options(bool tls) {
    net::Server_Options options;
    if (!tls) return options;
    root_.make_directory("/etc");
    write_certificate("localhost", root_.real("/etc/server.pem"), root_.real("/etc/server.key"));
    options.certificate_file = "/etc/server.pem";
    options.private_key_file = "/etc/server.key";
    return options;
  }
};

struct File_Closer {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, File_Closer>;

}  // namespace

std::unique_ptr<Transport_Side> make_fake_side(net::Http_Handler& handler) {
  return std::make_unique<Fake_Side>(handler);
}

std::unique_ptr<Transport_Side> make_tcp_side(net::Http_Handler& handler) {
  return std::make_unique<Tcp_Side>(handler, false);
}

std::unique_ptr<Transport_Side> make_tls_side(net::Http_Handler& handler) {
  return std::make_unique<Tcp_Side>(handler, true);
}

void write_certificate(const std::string& host, const std::string& certificate_path, const std::string& key_path) {
  const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"), EVP_PKEY_free);
  const std::unique_ptr<X509, decltype(&X509_free)> certificate(X509_new(), X509_free);
  ASSERT_TRUE(key != nullptr && certificate != nullptr);
  X509_set_version(certificate.get(), X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -day_seconds);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), day_seconds);
  X509_set_pubkey(certificate.get(), key.get());
  X509_NAME* const name = X509_get_subject_name(certificate.get());
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(host.c_str()), -1, -1, 0);
  X509_set_issuer_name(certificate.get(), name);
  const std::string names = "DNS:" + host + ",IP:127.0.0.1";
  const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
      X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, names.c_str()), X509_EXTENSION_free);
  ASSERT_TRUE(extension != nullptr);
  X509_add_ext(certificate.get(), extension.get(), -1);
  ASSERT_GT(X509_sign(certificate.get(), key.get(), EVP_sha256()), 0);

  const File certificate_file(std::fopen(certificate_path.c_str(), "w"));
  const File key_file(std::fopen(key_path.c_str(), "w"));
  ASSERT_TRUE(certificate_file != nullptr && key_file != nullptr);
  ASSERT_EQ(PEM_write_X509(certificate_file.get(), certificate.get()), 1);
  ASSERT_EQ(PEM_write_PrivateKey(key_file.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr), 1);
}

}  // namespace contract
