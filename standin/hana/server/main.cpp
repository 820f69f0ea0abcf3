#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>

#include "server/instance.h"

namespace {
standin::Instance* served = nullptr;
void handle_stop(int) { served->request_stop(); }
}  // namespace

int main() {
  const auto layout = standin::own_layout();
  if (!layout) {
    std::fprintf(stderr, "The server lies in no installation\n");
    return 1;
  }
  standin::Instance instance(*layout);
  served = &instance;
  ::signal(SIGPIPE, SIG_IGN);
  ::signal(SIGTERM, handle_stop);
  ::signal(SIGINT, SIG_IGN);
  return instance.serve();
}
