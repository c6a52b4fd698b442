// Connect contexts and requests of the module, and the driver's answer to command 13.
#include "driver/vectors/generator/vector_file.h"
#include "kdi/driver_records.h"

namespace fenlux::vectors {
namespace {

using records::Command;

constexpr std::string_view kUnused = "not used by this command";

VectorFile Request(std::string name, std::string title, Command command) {
  const auto number = static_cast<std::uint32_t>(command);
  const std::string prefix = number < 10 ? "0" : "";
  VectorFile file("request", "request/" + prefix + std::to_string(number) + "-" + name,
                  "request, command " + std::to_string(number) + ": " + title);
  file.U64("-magic", records::kRequestMagic).U32("command", number);
  return file;
}

// Fills the rest of the request, which may hold anything.
VectorFile Whole(VectorFile file, std::uint8_t filling = 0) {
  return file.FillTo(records::kRequestSize, kUnused, filling);
}

VectorFile MonitorObject(std::string name, std::string title, std::uint32_t type, std::uint8_t flag,
                         std::u16string_view root, std::u16string_view path) {
  return Request(std::move(name), std::move(title), Command::kAddMonitorObject)
      .U32("objectType", type)
      .U8("pathFlag", flag)
      .TextField("rootName", root, 8)
      .TextField("path", path, 65536);
}

VectorFile ClientSwitch(std::string name, std::string title, Command command, std::uint32_t clientType,
                        std::uint8_t on) {
  return Whole(Request(std::move(name), std::move(title), command).U32("clientType", clientType).U8("switch", on));
}

VectorFile Value(std::string name, std::string title, Command command, std::string_view key, std::uint32_t value) {
  return Whole(Request(std::move(name), std::move(title), command).U32(key, value));
}

VectorFile SystemProcess(std::string name, std::string image, std::uint32_t kind, std::uint64_t processId) {
  return Whole(Request(std::move(name), "registers the process id of " + image, Command::kSystemProcess)
                   .U32("kind", kind, image)
                   .U64("processId", processId));
}

Bytes Counting(std::size_t count, std::uint8_t first) {
  Bytes out;
  for (std::size_t i = 0; i < count; ++i) out.push_back(static_cast<std::uint8_t>(first + i));
  return out;
}

}  // namespace

std::vector<VectorFile> ConnectVectors() {
  std::vector<VectorFile> files;
  for (const std::uint32_t type : {1u, 2u}) {
    const std::string number = std::to_string(type);
    files.push_back(
        VectorFile("connect-context", "connect-context/client-type-" + number, "connect context, client type " + number)
            .U64("-magic", records::kConnectMagic)
            .U32("version", records::kConnectVersion)
            .U32("clientType", type));
  }
  return files;
}

std::vector<VectorFile> RequestVectors() {
  std::vector<VectorFile> files;
  const auto add = [&files](VectorFile file) { files.push_back(std::move(file)); };
  add(MonitorObject("directory", "adds an existing directory", 1, 0, u"C:", u"C:\\Users\\Public"));
  add(MonitorObject("missing", "adds a path that does not exist", 2, 1, u"D:", u"D:\\Gr\u00f6\u00dfe\\\U0001F4C1"));
  add(MonitorObject("network", "adds a path on the network, whose root name is cut", 3, 0, u"\\\\server",
                    u"\\\\server\\share\\folder"));
  add(MonitorObject("longest", "adds a path that fills its field, without a NUL", 1, 1, u"C:",
                    u"C:\\" + std::u16string(32765, u'a')));
  for (const std::uint32_t type : {1u, 2u, 3u}) {
    add(Value("commit-type-" + std::to_string(type), "commits the monitor objects of one type",
              Command::kCommitMonitorObjects, "objectType", type));
  }
  add(ClientSwitch("mode-1", "grpm switch, mode 1", Command::kGrpmSwitch, 1, 1));
  add(ClientSwitch("mode-3", "grpm switch, mode 3, client type 2", Command::kGrpmSwitch, 2, 0));
  add(ClientSwitch("mode-1", "grsp switch, mode 1", Command::kGrspSwitch, 1, 0));
  add(ClientSwitch("mode-3", "grsp switch, mode 3, client type 2", Command::kGrspSwitch, 2, 1));
  add(Value("value", "grdto value", Command::kGrdtoValue, "value", 0x12345678));
  add(Whole(Request("on", "grhara switch, on", Command::kGrharaSwitch).U8("off", 0)));
  add(Whole(Request("off", "grhara switch, off", Command::kGrharaSwitch).U8("off", 1)));
  add(Whole(Request("dump", "dumps debug information", Command::kDumpDebugInfo)));
  add(Whole(Request("all", "spsp state", Command::kSpspState)
                .U8("switch1", 1)
                .U8("switch2", 1)
                .U8("switch3", 0)
                .U8("switch4", 1)));
  add(Whole(Request("middle-skipped", "spsp state without the middle switches", Command::kSpspState)
                .U8("switch1", 1)
                .U8("switch2", 0, "skipped")
                .U8("switch3", 0, "skipped")
                .U8("switch4", 1)));
  add(Whole(Request("version", "asks for the driver's version", Command::kDriverVersion)));
  add(Whole(Request("version-unused-cd", "asks for the driver's version, from a buffer that was not cleared",
                    Command::kDriverVersion),
            0xCD));
  for (const std::uint32_t mode : {1u, 2u, 3u, 4u}) {
    add(Value("mode-" + std::to_string(mode), "network-control mode", Command::kNetControlMode, "mode", mode));
  }
  add(SystemProcess("csrss", "csrss.exe", 2, 0x1a4));
  add(SystemProcess("services", "services.exe", 3, 0x123456789abcdef0));
  add(Value("list-begin", "begins a network-control item list", Command::kNetItemListBegin, "listType", 3));
  add(Whole(Request("item", "one network-control item", Command::kNetItem)
                .U32("listType", 3)
                .Raw("opaque", Counting(48, 1))
                .U32("value", 0xa0b0c0d0)));
  add(Value("list-end", "ends a network-control item list", Command::kNetItemListEnd, "listType", 3));
  // The request does not state the block's size, so a decoder shows it without trailing zeros.
  add(Whole(Request("block", "configuration block", Command::kDriverConfig).Raw("block", Counting(20, 0xe0))));
  add(Whole(Request("no-block", "no configuration block", Command::kDriverConfig).Note("block", "")));
  return files;
}

std::vector<VectorFile> VersionReplyVectors() {
  std::vector<VectorFile> files;
  const auto add = [&files](std::string name, std::string title, std::uint32_t version) {
    files.push_back(VectorFile("version-reply", "version-reply/" + name, "version reply: " + title)
                        .U64("-magic", records::kRequestMagic, "not read by the module")
                        .U32("-command", static_cast<std::uint32_t>(Command::kDriverVersion), "not read by the module")
                        .U32("version", version)
                        .FillTo(records::kRequestSize, "not read by the module, but it must be there"));
  };
  add("module-version", "the module's version", 19072701);
  add("other-version", "a version that the module warns of", 19072600);
  return files;
}

}  // namespace fenlux::vectors
