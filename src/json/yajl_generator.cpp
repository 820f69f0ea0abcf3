#include "json/yajl_generator.h"

#include <new>

#include "json/wiping_allocation.h"

YAJL_Generator::YAJL_Generator() : handle_(yajl_gen_alloc(&wiping_allocation)) {
  if (handle_ == nullptr) throw std::bad_alloc();
}

YAJL_Generator::~YAJL_Generator() { yajl_gen_free(handle_); }

std::string YAJL_Generator::text() const {
  const unsigned char* buffer = nullptr;
  std::size_t size = 0;
  yajl_gen_get_buf(handle_, &buffer, &size);
  return std::string(reinterpret_cast<const char*>(buffer), size);
}

void yajl_write(yajl_gen generator, std::string_view text) {
  yajl_gen_string(generator, reinterpret_cast<const unsigned char*>(text.data()), text.size());
}
