// Where the output goes: how wide it is, whether it takes colour, and whether somebody turns pages.
#ifndef TOOLS_ACLCTL_TERMINAL_H_
#define TOOLS_ACLCTL_TERMINAL_H_

#include <sys/types.h>

#include <cstddef>
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
  pid_t process_ = -1;
};

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_TERMINAL_H_
