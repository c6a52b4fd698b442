// Child processes are polled, so that every wait has a timeout.
#include "tests/integration/host_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <nlohmann/json.hpp>

extern char** environ;

namespace fenlux::testing {
namespace {

namespace fs = boost::filesystem;

const std::string kProgram = FENLUX_PROGRAM_DIRECTORY "/fenlux-host";

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

std::vector<std::string> Environment(const std::map<std::string, std::string>& extra) {
  std::vector<std::string> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string text = *variable;
    if (!extra.contains(text.substr(0, text.find('=')))) variables.push_back(text);
  }
  for (const auto& [name, value] : extra) variables.push_back(name + "=" + value);
  return variables;
}

}  // namespace

HostSetup::HostSetup() {
  SetVariable("XDG_RUNTIME_DIR", Path().string());
  // As if sudo ran the tests in the clone of the user who built it: root's host uses that user's files.
  struct stat status {};
  if (::stat(kProgram.c_str(), &status) == 0) SetVariable("SUDO_UID", std::to_string(status.st_uid));
}

std::string HostSetup::Write(const std::string& name, const std::string& text) const {
  return directory.Write(name, text).string();
}

std::string HostSetup::Read(const std::string& name) const { return FileText(Path() / name); }

std::string HostSetup::Directory(const std::string& name) const { return directory.MakeDirectory(name).string(); }

void HostSetup::WriteHost(const std::string& text) const {
  const std::string limit = Contains(text, "stop_timeout_ms") ? "" : "stop_timeout_ms = 240000\n";
  Write("host.toml", limit + text + "\n[control]\nsocket = 'control/host.sock'\n");
}

void HostSetup::WriteHost(const std::string& text, const std::string& scenario) const {
  WriteHost(text + "\n[emulator]\nscenario = 'scenario.toml'\ndeadline_ms = 20000\n");
  Write("scenario.toml", scenario);
}

Outcome HostSetup::Run(const Arguments& arguments) const { return HostProcess(*this, arguments).Wait(); }

Outcome HostSetup::Control(const Arguments& arguments) const {
  Arguments all{"ctl", "--socket", (Path() / "control/host.sock").string()};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return Run(all);
}

std::string HostSetup::ControlJson(const Arguments& arguments) const {
  Arguments all{"--json"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  const Outcome outcome = Control(all);
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  return outcome.code == 0 ? outcome.out : std::string();
}

HostProcess::HostProcess(const HostSetup& setup, const Arguments& arguments)
    : HostProcess(setup, kProgram, arguments) {}

HostProcess::HostProcess(const HostSetup& setup, const std::string& program, const Arguments& arguments) {
  static std::atomic<int> count{0};
  const std::string number = std::to_string(++count);
  out = setup.Path() / ("process-" + number + ".out");
  err = setup.Path() / ("process-" + number + ".err");
  std::vector<std::string> commandLine{program};
  commandLine.insert(commandLine.end(), arguments.begin(), arguments.end());
  std::vector<std::string> variables = Environment(setup.Variables());
  posix_spawn_file_actions_t files;
  ::posix_spawn_file_actions_init(&files);
  const int flags = O_WRONLY | O_CREAT | O_TRUNC;
  ::posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, out.c_str(), flags, 0600);
  ::posix_spawn_file_actions_addopen(&files, STDERR_FILENO, err.c_str(), flags, 0600);
  const int result = ::posix_spawnp(&process, program.c_str(), &files, nullptr, Pointers(commandLine).data(),
                                    Pointers(variables).data());
  ::posix_spawn_file_actions_destroy(&files);
  if (result != 0) {
    process = -1;
    ADD_FAILURE() << program << " did not start";
  }
}

HostProcess::~HostProcess() {
  if (process < 0 || Ended()) return;
  Signal(SIGKILL);
  ::waitpid(process, nullptr, 0);
}

void HostProcess::Signal(int signal) const { ::kill(process, signal); }

bool HostProcess::Ended() {
  if (ended || process < 0) return true;
  int status = 0;
  if (::waitpid(process, &status, WNOHANG) != process) return false;
  ended = true;
  code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return true;
}

Outcome HostProcess::Wait() {
  if (!Eventually([this] { return Ended(); })) {
    ADD_FAILURE() << "the program did not end; its standard error:\n" << Err();
    Signal(SIGKILL);
    ::waitpid(process, nullptr, 0);
    ended = true;
  }
  return {code, Out(), Err()};
}

Outcome HostProcess::Stop() {
  Signal(SIGTERM);
  return Wait();
}

bool HostProcess::WaitForError(const std::string& text, std::size_t times) { return WaitFor(err, text, times); }

bool HostProcess::WaitForOutput(const std::string& text, std::size_t times) { return WaitFor(out, text, times); }

bool HostProcess::WaitFor(const fs::path& file, const std::string& text, std::size_t times) {
  const bool found = Eventually([&] {
    const bool isOver = Ended();  // checked before reading, so that the last output is seen
    return CountOf(FileText(file), text) >= times || isOver;
  });
  return found && CountOf(FileText(file), text) >= times;
}

std::string HostProcess::Out() const { return FileText(out); }
std::string HostProcess::Err() const { return FileText(err); }

std::string HostProgram() { return kProgram; }

Arguments RunArguments(const HostSetup& setup, const Arguments& more) {
  Arguments arguments{"run", "--config", (setup.Path() / "host.toml").string()};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

std::size_t CountOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++count;
  return count;
}

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

std::string JsonValue(const std::string& json, const std::string& path) {
  const auto root = nlohmann::ordered_json::parse(json, nullptr, /*allow_exceptions=*/false);
  if (root.is_discarded()) return "(not JSON: " + json + ")";
  const nlohmann::ordered_json* value = &root;
  std::size_t begin = 0;
  while (begin <= path.size()) {
    const std::size_t end = std::min(path.find('.', begin), path.size());
    const std::string name = path.substr(begin, end - begin);
    if (value->is_array()) {
      const std::size_t index = std::stoul(name);
      if (index >= value->size()) return "(none)";
      value = &(*value)[index];
    } else {
      const auto member = value->find(name);
      if (member == value->end()) return "(none)";
      value = &*member;
    }
    begin = end + 1;
  }
  return value->is_string() ? value->get<std::string>() : value->dump();
}

}  // namespace fenlux::testing
