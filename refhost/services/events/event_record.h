// Event records: the data of one notification.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "host/arp_mgmt.h"
#include "host/arp_record.h"

namespace fenlux::refhost {

// The values that the module set for one event. Values it did not set are empty.
struct EventData {
  std::uint64_t processId = 0;
  std::optional<std::uint32_t> sessionId;
  std::string commandLine;  // UTF-8
  std::string identityText;
  std::wstring imagePath;
  std::wstring path;
  std::wstring secondPath;
  std::uint32_t eventType = 0;
  std::uint32_t category = 0;
  std::uint32_t source = 0;
  bool marked = false;
  std::shared_ptr<CBuf> extraData;
  std::optional<std::uint16_t> port;
  bool ipv6 = false;
  std::uint32_t ipv4Address = 0;
  std::array<std::uint8_t, 16> ipv6Address{};
  bool remote = false;
  std::array<std::uint64_t, 4> words{};
  std::uint32_t valueA = 0;
  std::uint32_t valueB = 0;
};

// Used by one delivery thread at a time.
class EventRecord final : public CArpRecord {
 public:
  EventRecord();
  EventRecord(const EventRecord&) = delete;
  EventRecord& operator=(const EventRecord&) = delete;

  const EventData& Data() const { return data; }
  // The data that Decision::kContext sends to the driver.
  void SetContextData(std::shared_ptr<CBuf> newContext) { context = std::move(newContext); }

  const std::shared_ptr<CArpProcess>& ProcessPart() override { return processHandle; }
  void Mark() override { data.marked = true; }
  std::wstring& GetPath(std::wstring& out) override { return out = data.path; }
  std::shared_ptr<CBuf> GetContextData() override { return context; }
  // The process id, so that the path of the process's image replaces a missing path.
  std::uint32_t GetPathSource() override { return static_cast<std::uint32_t>(data.processId); }
  std::string& Describe(std::string& out) override;
  void SetPath(const std::wstring& path) override { data.path = path; }
  void SetSecondPath(const std::wstring& path) override { data.secondPath = path; }
  void SetEventType(std::uint32_t type) override { data.eventType = type; }
  void SetCategory(std::uint32_t category) override { data.category = category; }
  void SetSource(std::uint32_t source) override { data.source = source; }
  void SetExtraData(const std::shared_ptr<CBuf>& extraData) override { data.extraData = extraData; }
  void SetPort(std::uint16_t port) override { data.port = port; }
  void SetIpv6(bool ipv6) override { data.ipv6 = ipv6; }
  void SetIpv4Address(std::uint32_t address) override { data.ipv4Address = address; }
  void SetIpv6Address(const std::array<std::uint8_t, 16>& address) override { data.ipv6Address = address; }
  void SetRemoteFlag(bool remote) override { data.remote = remote; }
  void SetWord0(std::uint64_t word) override { data.words[0] = word; }
  void SetWord1(std::uint64_t word) override { data.words[1] = word; }
  void SetWord2(std::uint64_t word) override { data.words[2] = word; }
  void SetWord3(std::uint64_t word) override { data.words[3] = word; }
  void SetValueA(std::uint32_t value) override { data.valueA = value; }
  void SetValueB(std::uint32_t value) override { data.valueB = value; }
  void SetWideInfo(const std::wstring& text) override { data.imagePath = text; }

 private:
  class Process final : public CArpProcess {
   public:
    explicit Process(EventData& event) : data(event) {}
    std::uint64_t GetProcessId() override { return data.processId; }
    void SetProcessId(std::uint64_t processId) override { data.processId = processId; }
    void SetSessionId(std::uint32_t sessionId) override { data.sessionId = sessionId; }
    void SetNarrowInfo(const std::string& text) override { data.commandLine = text; }
    void SetIdentityText(const std::string& text) override { data.identityText = text; }

   private:
    EventData& data;
  };

  EventData data;
  Process process;
  // Points at process without owning it: the part lives as long as its record.
  std::shared_ptr<CArpProcess> processHandle;
  std::shared_ptr<CBuf> context;
};

class EventRecordMaker final : public CArpMgmt {
 public:
  std::shared_ptr<CArpRecord>& CreateRecord(std::shared_ptr<CArpRecord>& out, std::uint32_t /*reserved*/) override {
    return out = std::make_shared<EventRecord>();
  }
};

}  // namespace fenlux::refhost
