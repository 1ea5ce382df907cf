// The terminal: see terminal.h.
#include "tools/aclctl/terminal.h"

#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace aclctl {
namespace {

// Measured once, before a pager takes the terminal's place.
struct Facts {
  bool terminal = isatty(STDOUT_FILENO) == 1;
  size_t width = 0;

  Facts() {
    winsize size{};
    if (terminal && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) width = size.ws_col;
  }
};

const Facts& Terminal() {
  static const Facts kFacts;
  return kFacts;
}

// Becomes the pager. Returns where there is none.
void RunPager(int input) {
  dup2(input, STDIN_FILENO);
  close(input);
  setenv("LESS", "FRX", 0);  // leave at once where it fits; colours as they are; no second screen
  const char* const pager = std::getenv("PAGER");
  execl("/bin/sh", "sh", "-c", pager != nullptr && *pager != 0 ? pager : "less 2>/dev/null || cat",
        nullptr);
}

}  // namespace

size_t TerminalWidth() { return Terminal().width; }

bool TakesColour() {
  const char* const unwanted = std::getenv("NO_COLOR");
  return Terminal().terminal && (unwanted == nullptr || *unwanted == 0);
}

const char* NameOf(Colour colour) {
  return colour == Colour::kRed ? "red" : colour == Colour::kGreen ? "green" : "yellow";
}

std::string Coloured(Colour colour, const std::string& text) {
  if (!TakesColour()) return text;
  const char* const code = colour == Colour::kRed ? "31" : colour == Colour::kGreen ? "32" : "33";
  return std::string("\033[") + code + "m" + text + "\033[m";
}

KeysForOther::KeysForOther() {
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGINT, &ignore, &interrupt_);
  sigaction(SIGQUIT, &ignore, &quit_);
}

KeysForOther::~KeysForOther() { GiveTo(); }

void KeysForOther::GiveTo() const {
  sigaction(SIGINT, &interrupt_, nullptr);
  sigaction(SIGQUIT, &quit_, nullptr);
}

Pager::Pager(bool wanted) {
  int ends[2];
  if (!wanted || !Terminal().terminal || pipe(ends) != 0) return;
  std::fflush(stdout);
  keys_.emplace();
  process_ = fork();
  if (process_ == 0) {
    keys_->GiveTo();
    close(ends[1]);
    RunPager(ends[0]);
    _exit(127);
  }
  if (process_ > 0) dup2(ends[1], STDOUT_FILENO);
  close(ends[0]);
  close(ends[1]);
}

Pager::~Pager() {
  if (process_ <= 0) return;
  std::fflush(stdout);
  close(STDOUT_FILENO);  // tells the pager that this is all
  while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace aclctl
