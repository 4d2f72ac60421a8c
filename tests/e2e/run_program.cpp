#include "tests/e2e/run_program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

extern char** environ;

TempDir::TempDir() {
  std::string tmpl = (std::filesystem::temp_directory_path() / "pellam-test-XXXXXX").string();
  char* p = mkdtemp(tmpl.data());
  path_ = p ? p : "";
}

TempDir::~TempDir() {
  if (!path_.empty()) {
    std::error_code ec;
    // Read-only files and directories made by a test must not stop the clean-up.
    for (auto it = std::filesystem::recursive_directory_iterator(path_, ec);
         it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
      std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                   std::filesystem::perm_options::add, ec);
    }
    std::filesystem::remove_all(path_, ec);
  }
}

void TempDir::write(const std::string& name, const std::string& contents) const {
  std::ofstream f(file(name), std::ios::binary | std::ios::trunc);
  f.write(contents.data(), (std::streamsize)contents.size());
}

std::string TempDir::read(const std::string& name) const { return ReadFile(file(name)); }

std::string ReadFile(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::ostringstream ss;
  ss << f.rdbuf();
  return ss.str();
}

bool TempDir::exists(const std::string& name) const {
  struct stat st;
  return stat(file(name).c_str(), &st) == 0;
}

std::string PellamBinary() { return std::string(PELLAM_BIN_DIR) + "/pellam-spi"; }

std::string Pattern(size_t n, uint32_t seed) {
  std::string b(n, '\0');
  uint32_t x = seed * 2654435761u + 1;
  for (auto& c : b) {
    x = x * 1103515245u + 12345u;
    c = (char)(x >> 16);
    if (c == '\xFF') c = 0x7F;
  }
  return b;
}

std::string StripCR(const std::string& s) {
  std::string r;
  r.reserve(s.size());
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '\r' && i + 1 < s.size() && s[i + 1] == '\n') continue;
    r += s[i];
  }
  return r;
}

RunResult RunProgram(const std::vector<std::string>& args, const std::string& cwd,
                     const std::vector<std::string>& env, int timeoutSeconds,
                     const std::string& program) {
  RunResult result;
  const std::string exe = program.empty() ? PellamBinary() : program;

  // Environment: inherited, with the test's additions and removals. The
  // simulator's settings come from the test alone: one exported in the shell
  // that runs the suite would otherwise put every run on one simulated chip.
  std::vector<std::string> envStrings;
  for (char** e = environ; *e; ++e)
    if (std::strncmp(*e, "TARLOSIM_", 9) != 0) envStrings.emplace_back(*e);
  for (const std::string& kv : env) {
    const size_t eq = kv.find('=');
    const std::string name = kv.substr(0, eq);
    std::erase_if(envStrings, [&](const std::string& s) {
      return s.compare(0, name.size() + 1, name + "=") == 0;
    });
    if (eq != std::string::npos) envStrings.push_back(kv);
  }
  std::vector<char*> envp;
  for (auto& s : envStrings) envp.push_back(s.data());
  envp.push_back(nullptr);

  std::vector<std::string> argStrings;
  argStrings.push_back(exe);
  argStrings.insert(argStrings.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& s : argStrings) argv.push_back(s.data());
  argv.push_back(nullptr);

  int outPipe[2], errPipe[2];
  if (pipe2(outPipe, O_CLOEXEC) != 0 || pipe2(errPipe, O_CLOEXEC) != 0) return result;
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(outPipe[1], 1);
    dup2(errPipe[1], 2);
    int devnull = open("/dev/null", O_RDONLY);
    if (devnull >= 0) dup2(devnull, 0);
    if (!cwd.empty() && chdir(cwd.c_str()) != 0) _exit(127);
    execve(exe.c_str(), argv.data(), envp.data());
    _exit(127);
  }
  close(outPipe[1]);
  close(errPipe[1]);

  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
  bool outOpen = true, errOpen = true, killed = false;
  char buf[65536];
  while (outOpen || errOpen) {
    pollfd fds[2] = {{outOpen ? outPipe[0] : -1, POLLIN, 0}, {errOpen ? errPipe[0] : -1, POLLIN, 0}};
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now()).count();
    if (left <= 0) {
      kill(pid, SIGKILL);
      killed = true;
      break;
    }
    const int n = poll(fds, 2, (int)std::min<long long>(left, 1000));
    if (n < 0 && errno != EINTR) break;
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
      const ssize_t r = read(fds[i].fd, buf, sizeof buf);
      if (r > 0) {
        (i == 0 ? result.out : result.err).append(buf, (size_t)r);
      } else {
        (i == 0 ? outOpen : errOpen) = false;
      }
    }
  }
  close(outPipe[0]);
  close(errPipe[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  result.exitStatus = (!killed && WIFEXITED(status)) ? WEXITSTATUS(status) : -1;
  return result;
}

bool Has(const RunResult& r, const std::string& text) { return r.out.find(text) != std::string::npos; }

size_t Count(const std::string& s, const std::string& what) {
  size_t n = 0;
  for (size_t p = s.find(what); p != std::string::npos; p = s.find(what, p + 1)) n++;
  return n;
}

std::vector<Frame> ParseTraceFrames(const std::string& traceText) {
  std::vector<Frame> frames;
  std::istringstream in(traceText);
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    Frame f;
    std::istringstream bytes(line);
    for (std::string b; bytes >> b;) f.push_back(static_cast<uint8_t>(std::stoul(b, nullptr, 16)));
    frames.push_back(f);
  }
  return frames;
}
