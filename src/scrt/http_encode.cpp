#include "scrt/http_encode.h"

namespace http_encode_detail {

unsigned keeping_flag(char c) {
  switch (c) {
    case ':':
      return 0x8;
    case '(':
      return 0x10;
    case ')':
      return 0x20;
    case '\'':
      return 0x40;
    case '*':
      return 0x80;
    case '!':
      return 0x200;
    case '#':
      return 0x400;
    case '$':
      return 0x800;
    case '&':
      return 0x1000;
    case '+':
      return 0x2000;
    case ',':
      return 0x4000;
    case ';':
      return 0x8000;
    case '=':
      return 0x10000;
    case '?':
      return 0x20000;
    case '@':
      return 0x40000;
    default:
      return 0;
  }
}

bool is_unreserved(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
         c == '.' || c == '~';
}

}  // namespace http_encode_detail
