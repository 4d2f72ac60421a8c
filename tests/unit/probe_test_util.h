// Captures what a piece of code writes to standard output (file descriptor 1,
// where the binding's messages go).
#pragma once
#include <unistd.h>

#include <cstdio>
#include <string>

template <typename F>
std::string CaptureStdout(F body) {
  std::fflush(stdout);
  char tmpl[] = "/tmp/pellam-probe-out-XXXXXX";
  int fd = mkstemp(tmpl);
  unlink(tmpl);
  int saved = dup(1);
  dup2(fd, 1);
  body();
  std::fflush(stdout);
  dup2(saved, 1);
  close(saved);
  std::string out;
  lseek(fd, 0, SEEK_SET);
  char buf[4096];
  ssize_t n;
  while ((n = read(fd, buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(n));
  close(fd);
  return out;
}
