// Where the output goes: how wide it is, whether it takes colour, and whether somebody turns pages.
#ifndef TOOLS_ACLCTL_TERMINAL_H_
#define TOOLS_ACLCTL_TERMINAL_H_

#include <signal.h>
#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>

namespace aclctl {

// Characters in a line of the terminal at standard output; 0 where it is none.
size_t TerminalWidth();

// Text in a colour, where standard output is a terminal and NO_COLOR is not set; as it is
// elsewhere.
enum class Colour { kRed, kGreen, kYellow };
bool TakesColour();
const char* NameOf(Colour colour);  // "red"
std::string Coloured(Colour colour, const std::string& text);

// While it lives, the keys that interrupt (SIGINT, SIGQUIT) are left to another program that has
// the terminal, as system(3) leaves them: this one would end, and the other go on beside the shell.
class KeysForOther {
 public:
  KeysForOther();
  KeysForOther(const KeysForOther&) = delete;
  KeysForOther& operator=(const KeysForOther&) = delete;
  ~KeysForOther();

  // For the other program, before it is executed: it hears the keys.
  void GiveTo() const;

 private:
  struct sigaction interrupt_, quit_;  // as they were
};

// While it lives, standard output goes through $PAGER (less where that is not set), when it is a
// terminal: what fits the screen is printed at once. Nothing changes elsewhere. TerminalWidth() and
// Coloured() go on as if it were not there.
class Pager {
 public:
  // Does nothing unless `wanted`.
  explicit Pager(bool wanted);
  Pager(const Pager&) = delete;
  Pager& operator=(const Pager&) = delete;
  // Waits until the reader has left.
  ~Pager();

 private:
  std::optional<KeysForOther> keys_;
  pid_t process_ = -1;
};

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_TERMINAL_H_
