// Notifications: a vector for each code, and for each field that changes a notification's bytes.
#include <optional>

#include "driver/vectors/generator/vector_file.h"
#include "kdi/driver_records.h"

namespace fenlux::vectors {
namespace {

constexpr std::uint64_t kProcessId = 0x1f4c;
constexpr std::string_view kUnread = "not read by the module";

enum class Detail { kNone, kIpv4, kIpv6, kRemote, kLocal };

// The fields of a vector besides its code and path.
struct Fields {
  std::uint64_t processId = kProcessId;
  std::uint8_t variant = 0;
  std::uint8_t conditionA = 0;
  std::uint8_t conditionB = 0;
  std::uint8_t conditionC = 0;
  std::uint8_t oplock = 0;
  std::optional<std::u16string> path = u"\\Device\\HarddiskVolume3\\Users\\ann\\report.txt";
  std::optional<std::u16string> secondPath = {};
  std::optional<std::u16string> furtherPath = {};
  Bytes extraData = {};
  Bytes identity = {};
  Detail detail = Detail::kNone;
  std::uint8_t accessKind = 0;
  std::uint32_t accessValueA = 0;
  std::uint32_t accessValueB = 0;
};

bool HasAccess(std::uint32_t code) { return code == 4097 || code == 8193; }

Bytes Padded(Bytes bytes, std::size_t size) {
  bytes.resize(size, 0);
  return bytes;
}

std::uint32_t TextSize(const std::optional<std::u16string>& text) {
  return text ? static_cast<std::uint32_t>(2 * (text->size() + 1)) : 0;
}

void AddDetail(VectorFile& file, Detail detail) {
  if (detail == Detail::kIpv4) {
    file.U8("ipv6", 0).U16("port", 443);
    file.Raw("-address", {192, 0, 2, 17}, "in network byte order").Note("address", "192.0.2.17");
  } else if (detail == Detail::kIpv6) {
    file.U8("ipv6", 1).U16("port", 8443);
    file.Raw("-address", {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x2a}, "in network byte order");
    file.Note("address", "2001:0db8:0000:0000:0000:0000:0000:002a");
  } else if (detail == Detail::kRemote || detail == Detail::kLocal) {
    file.U8("remote", detail == Detail::kRemote ? 1 : 0);
    file.U64("word0", 0x0123456789abcdef).U64("word1", 2).U64("word2", 3).U64("word3", 0xfedcba9876543210);
  }
}

void AddText(VectorFile& file, std::string_view key, const std::optional<std::u16string>& text) {
  if (text) {
    file.Text(key, *text).Fill(2, "NUL");
  } else {
    file.Note(key, nullptr);
  }
}

VectorFile Notification(std::uint32_t code, const std::string& name, const std::string& title, const Fields& fields) {
  const std::string number = std::to_string(code);
  VectorFile file("notification", "notification/" + number + (name.empty() ? "" : "-" + name),
                  "notification, code " + number + (title.empty() ? "" : ": " + title));
  file.Fill(12, kUnread).U64("processId", fields.processId).U32("code", code).U8("variant", fields.variant);
  file.U8("conditionA", fields.conditionA).Fill(1, kUnread).U8("conditionB", fields.conditionB);
  file.U8("conditionC", fields.conditionC).U8("oplock", fields.oplock);
  file.U32("-size of the path", TextSize(fields.path));
  file.U32("-size of the second path", TextSize(fields.secondPath));
  file.U32("-size of the extra data", static_cast<std::uint32_t>(fields.extraData.size()));
  file.U32("-further path present", fields.furtherPath ? 1 : 0);
  file.U32("-identity present", fields.identity.empty() ? 0 : 1);
  if (fields.identity.empty()) {
    file.Note("identity", nullptr).Fill(64, "no identity block");
  } else {
    file.Raw("identity", Padded(fields.identity, 64));
  }
  AddDetail(file, fields.detail);
  file.FillTo(147, "not used by this code");
  if (HasAccess(code)) {
    file.U8("accessKind", fields.accessKind).U32("valueA", fields.accessValueA).U32("valueB", fields.accessValueB);
  } else {
    file.FillTo(156, "not used by this code");
  }
  // With a further path the module does not read the path.
  if (fields.furtherPath && fields.path) {
    file.Text("-path, not read", *fields.path).Fill(2, "NUL").Note("path", nullptr);
  } else {
    AddText(file, "path", fields.path);
  }
  AddText(file, "secondPath", fields.secondPath);
  if (fields.extraData.empty()) {
    file.Note("extraData", nullptr);
  } else {
    file.Raw("extraData", fields.extraData);
  }
  AddText(file, "furtherPath", fields.furtherPath);
  return file;
}

// A security identifier, S-1-5-21-1-2-3-1001.
const Bytes kIdentity{1, 5, 0, 0, 0, 0, 0, 5, 21, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 0xe9, 3, 0, 0};

void AddAccess(std::vector<VectorFile>& files, std::uint32_t code) {
  const Fields access{.accessValueA = 0x120089, .accessValueB = 7};
  const auto add = [&](const char* name, const char* title, const Fields& fields) {
    files.push_back(Notification(code, name, title, fields));
  };
  Fields fields = access;
  add("plain", "access, no condition", fields);
  fields.variant = 1;
  add("plain-variant", "access, no condition, variant", fields);
  fields = access;
  fields.conditionA = 1;
  add("condition-a", "access under condition A", fields);
  fields = access;
  fields.conditionB = 1;
  add("condition-b", "access under condition B", fields);
  fields = access;
  fields.conditionC = 1;
  fields.variant = 1;
  add("condition-c-variant", "access under condition C, variant", fields);
  fields = access;
  fields.accessKind = 1;
  add("kind", "access of the special kind", fields);
}

}  // namespace

std::vector<VectorFile> NotificationVectors() {
  std::vector<VectorFile> files;
  const auto add = [&](std::uint32_t code, const char* name, const char* title, const Fields& fields) {
    files.push_back(Notification(code, name, title, fields));
  };
  AddAccess(files, 4097);
  for (std::uint32_t code = 4098; code <= 4108; ++code) add(code, "", "", {});
  add(4098, "no-items", "nothing but the fixed part", {.path = {}});
  add(4098, "process-64-bit", "a process id of 64 bits", {.processId = 0x8000000000000001});
  add(4098, "text", "a path with characters beyond ASCII and beyond 16 bits",
      {.path = u"\\\u00c4pfel\\\u65e5\u672c\\\U0001F512 \"key\"\t.txt"});
  add(4098, "two-paths", "two paths", {.secondPath = u"\\Device\\HarddiskVolume3\\Users\\ann\\report.old"});
  add(4098, "extra-data", "a path and extra data of an odd size", {.extraData = {1, 2, 3}});
  add(4098, "all-items", "two paths and extra data",
      {.secondPath = u"\\b", .extraData = {0xff, 0, 0xfe, 0, 0}, .identity = kIdentity});
  add(4098, "identity", "an identity block", {.identity = kIdentity});
  add(4098, "oplock", "an oplock break, which is not judged", {.oplock = 1});
  add(4101, "variant", "variant", {.variant = 1});
  add(4109, "", "", {});
  add(4109, "condition-b", "condition B", {.conditionB = 1});
  add(4109, "condition-b-variant", "condition B, variant", {.variant = 1, .conditionB = 1});
  for (std::uint32_t code = 4110; code <= 4112; ++code) add(code, "", "", {});
  add(4113, "no-reply", "the module sends no reply", {});
  add(4114, "ipv4", "endpoint with an IPv4 address", {.path = {}, .detail = Detail::kIpv4});
  add(4114, "ipv6", "endpoint with an IPv6 address", {.path = {}, .detail = Detail::kIpv6});
  add(4116, "remote", "remote detail, no path", {.path = {}, .detail = Detail::kRemote});
  add(4116, "local-path", "remote detail with the flag cleared, and a path", {.detail = Detail::kLocal});
  add(4117, "", "", {});
  add(4118, "", "a path with a prefix of 12 characters", {.path = u"\\Device\\Mup\\server\\share\\a.txt"});
  AddAccess(files, 8193);
  add(8194, "", "the record is marked", {});
  for (std::uint32_t code = 8195; code <= 8203; ++code) add(code, "", "", {});
  add(8196, "variant", "variant", {.variant = 1});
  add(8204, "path", "without a further path", {});
  add(8204, "further-path", "with a further path and no other item",
      {.path = {}, .furtherPath = u"\\Device\\HarddiskVolume3\\further.txt"});
  add(8204, "further-path-last", "with a further path after three other items, at an odd offset",
      {.secondPath = u"\\second", .furtherPath = u"\\further", .extraData = {9}});
  add(8205, "remote", "remote detail, no path", {.path = {}, .detail = Detail::kRemote});
  add(8206, "", "", {});
  return files;
}

}  // namespace fenlux::vectors
