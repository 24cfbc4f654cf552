#include "statedb/sqlite/fakes/Writer.h"

#include <fcntl.h>
#include <spawn.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace statedb::sqlite {

Writer::Writer(const char* what, const rt::String& file) {
  int in[2];
  int out[2];
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  std::vector<std::string> words = {VMAGENT_STATEDB_WRITER, what, file.str()};
  char* const arguments[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
  const int failed = posix_spawn(&process_, arguments[0], &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  close(in[0]);
  close(out[1]);
  in_ = in[1];
  out_ = out[0];
  if (failed != 0) throw std::runtime_error("the writing program could not be started");
}

}  // namespace statedb::sqlite
