// Replies to notifications, and invalid records of every kind, which a decoder must refuse.
#include <algorithm>
#include <stdexcept>

#include "driver/vectors/generator/vector_file.h"
#include "kdi/driver_records.h"

namespace fenlux::vectors {
namespace {

constexpr std::uint32_t kContextTail = 2;  // bytes after the context data, counted in its size

VectorFile Reply(const std::string& name, const std::string& title, std::uint32_t verdict, const Bytes& context,
                 std::uint8_t filling = 0) {
  VectorFile file("reply", "reply/" + name, "reply: " + title);
  file.U64("-magic", records::kReplyMagic).U32("-size of the fixed part", records::kReplyFixedSize);
  file.U32("verdict", verdict);
  if (context.empty()) {
    return file.FillTo(records::kReplyFixedSize, "not used", filling).Note("context", nullptr);
  }
  file.U32("-size of the context data, with 2", static_cast<std::uint32_t>(context.size()) + kContextTail);
  file.FillTo(records::kReplyFixedSize, "not used", filling).Raw("context", context);
  return file.Fill(kContextTail, "not part of the context data", filling);
}

// A copy of the vector at that path, for making it malformed.
VectorFile Copy(const std::vector<VectorFile>& files, const std::string& path, const std::string& name,
                const std::string& title) {
  const auto found =
      std::find_if(files.begin(), files.end(), [&](const VectorFile& file) { return file.Path() == path; });
  if (found == files.end()) throw std::logic_error("no vector " + path);
  return found->As("malformed/" + found->Record() + "-" + name, "malformed " + found->Record() + ": " + title);
}

}  // namespace

std::vector<VectorFile> ReplyVectors() {
  std::vector<VectorFile> files;
  const char* const titles[] = {"decision 1",
                                "decision 2 or an oplock break, for client type 1",
                                "decision 3",
                                "decision 4",
                                "",
                                "decision 6; decision 2 or an oplock break, for client type 2",
                                "decision 7, or not judged"};
  for (std::uint32_t verdict = 2; verdict <= 8; ++verdict) {
    if (verdict == 6) continue;
    files.push_back(Reply("verdict-" + std::to_string(verdict), titles[verdict - 2], verdict, {}));
  }
  files.push_back(Reply("verdict-6-text", "decision 5, context data is a text", 6, Utf16(u"C:\\other.txt")));
  files.push_back(Reply("verdict-6-one-byte", "decision 5, one byte of context data", 6, {0x7e}));
  files.push_back(Reply("verdict-4-unused-cd", "decision 3, from a buffer that was not cleared", 4, {}, 0xCD));
  files.push_back(Reply("verdict-6-unused-cd", "decision 5, from a buffer that was not cleared", 6, {1, 2, 3}, 0xCD));
  return files;
}

std::vector<VectorFile> MalformedVectors() {
  std::vector<VectorFile> files;
  const auto add = [&files](VectorFile file, const char* error) { files.push_back(file.Malformed(error)); };
  const auto connects = ConnectVectors();
  const auto connect = [&](const char* name, const char* title) {
    return Copy(connects, "connect-context/client-type-1", name, title);
  };
  add(connect("short", "one byte too few").Resize(15), "wrong size");
  add(connect("long", "one byte too many").Resize(17), "wrong size");
  add(connect("magic", "another magic").Patch(0, 0), "wrong magic");
  add(connect("version", "version 201").Patch(8, 201), "unknown connect version");
  add(connect("client-type", "client type 3").Patch(12, 3), "unknown client type");

  const auto requests = RequestVectors();
  const auto request = [&](const char* path, const char* name, const char* title) {
    return Copy(requests, path, name, title);
  };
  const char* const version = "request/13-version";
  add(request(version, "empty", "no bytes").Resize(0), "wrong size");
  add(request(version, "short", "one byte too few").Resize(65560), "wrong size");
  add(request(version, "magic", "another magic").Patch(7, 0), "wrong magic");
  add(request(version, "command", "command 2").Patch(8, 2), "unknown command");
  const char* const object = "request/01-directory";
  add(request(object, "object-type", "object type 4").Patch(12, 4), "unknown object type");
  add(request(object, "path-flag", "path flag 2").Patch(16, 2), "path flag is neither 0 nor 1");
  add(request(object, "no-path", "an empty path").Patch(25, 0).Patch(26, 0), "empty path");
  add(request("request/03-commit-type-1", "commit-type", "object type 0").Patch(12, 0), "unknown object type");
  add(request("request/04-mode-1", "client-type", "client type 0").Patch(12, 0), "unknown client type");
  add(request("request/06-mode-1", "switch", "switch 2").Patch(16, 2), "switch is neither 0 nor 1");
  add(request("request/19-mode-4", "mode", "mode 5").Patch(12, 5), "unknown network-control mode");
  add(request("request/20-csrss", "process-kind", "kind 4").Patch(12, 4), "unknown kind of system process");
  VectorFile none = request("request/20-csrss", "process-id", "the process id that means none");
  for (std::size_t i = 16; i < 24; ++i) none.Patch(i, 0xff);
  add(none, "process id means no process");
  add(request("request/22-item", "list-type", "list type 0").Patch(12, 0), "unknown list type");

  const auto notifications = NotificationVectors();
  const auto notification = [&](const char* path, const char* name, const char* title) {
    return Copy(notifications, path, name, title);
  };
  const char* const bare = "notification/4098-no-items";
  add(notification(bare, "short", "one byte less than the fixed part").Resize(155), "wrong size");
  add(notification(bare, "code-low", "code 4095").Patch(20, 0xff).Patch(21, 0x0f), "unknown notification code");
  add(notification(bare, "code-4115", "code 4115").Patch(20, 0x13), "unknown notification code");
  add(notification(bare, "no-path", "a size for a path that is not there").Patch(30, 2), "wrong size");
  add(notification("notification/4098-extra-data", "extra-data", "extra data beyond the end").Patch(38, 4),
      "wrong size");
  add(notification("notification/4098-two-paths", "second-path", "a second path beyond the end").Patch(33, 0xff),
      "wrong size");
  add(notification("notification/8204-path", "further-path", "a further path that is not there").Patch(42, 1),
      "wrong size");

  const auto replies = ReplyVectors();
  const auto reply = [&](const char* path, const char* name, const char* title) {
    return Copy(replies, path, name, title);
  };
  add(reply("reply/verdict-3", "short", "one byte too few").Resize(155), "wrong size");
  add(reply("reply/verdict-3", "long", "one byte too many").Resize(157), "wrong size");
  add(reply("reply/verdict-3", "magic", "another magic").Patch(3, 0), "wrong magic");
  add(reply("reply/verdict-3", "fixed-size", "a fixed part of 160 bytes").Patch(8, 160),
      "wrong size of the fixed part");
  add(reply("reply/verdict-3", "verdict", "verdict 9").Patch(12, 9), "unknown verdict");
  add(reply("reply/verdict-3", "no-context", "verdict 6 without context data").Patch(12, 6),
      "context data does not match the verdict");
  add(reply("reply/verdict-6-text", "context-size", "a size that is not that of the context data").Patch(16, 3),
      "wrong size");
  return files;
}

}  // namespace fenlux::vectors
