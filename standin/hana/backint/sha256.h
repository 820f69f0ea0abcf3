#pragma once

#include <openssl/evp.h>

#include <memory>
#include <string>

#include "base/text.h"

namespace standin {

class Sha256 {
 public:
  Sha256() : context_(EVP_MD_CTX_new(), &EVP_MD_CTX_free) { EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr); }
  void add(const char* data, std::size_t size) { EVP_DigestUpdate(context_.get(), data, size); }
  std::string finish() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    EVP_DigestFinal_ex(context_.get(), digest, &size);
    return hex(digest, size);
  }

 private:
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context_;
};

}  // namespace standin
