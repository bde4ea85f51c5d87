// The program `headunit`: runs a simulated unit until SIGTERM or SIGINT, or speaks to a running
// one.
#include <malloc.h>

#include <cstdio>
#include <string>
#include <vector>

#include "arguments.h"
#include "control_client.h"
#include "fail.h"
#include "import_command.h"
#include "run.h"

int main(int argc, char** argv) {
  // One heap for all threads: the host gets back the free end of the first one only, and a long
  // queue is to leave nothing behind.
  mallopt(M_ARENA_MAX, 1);
  std::vector<std::string> words(argv + 1, argv + argc);
  // One text helps with all commands.
  if (words.size() == 2 && words[1] == "--help") words.erase(words.begin());
  const std::string first = words.empty() ? "" : words[0];
  if (first == "ctl") return headunit::Control({words.begin() + 1, words.end()});
  if (first == "import") return headunit::Import({words.begin() + 1, words.end()});
  if (first == "wait") return headunit::AwaitUnit({words.begin() + 1, words.end()});
  headunit::Arguments arguments;
  const std::string wrong = headunit::ParseArguments(words, &arguments);
  if (!wrong.empty()) return headunit::Misuse(wrong);
  if (arguments.help) {
    std::fputs(headunit::kUsage, stdout);
    return 0;
  }
  return headunit::Run(arguments);
}
