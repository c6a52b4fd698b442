// Registrations and net objects may outlive the services that created them, so they share the state they update.
#include "refhost/services/record_register.h"

#include <stdexcept>

#include "common/mutex.h"

namespace fenlux::refhost {

struct RecordRegister::Entries {
  mutable Mutex mutex;
  std::list<RegisteredInterface> current FENLUX_GUARDED_BY(mutex);
  std::uint64_t total FENLUX_GUARDED_BY(mutex) = 0;
};

class RecordRegister::Record final : public CKdiRecord {
 public:
  void SetName(const std::string& name) override { data.name = name; }
  void SetPortValue(std::uint32_t value) override { data.portValue = value; }
  void SetValue1(std::uint32_t value) override { data.value1 = value; }
  void SetValue2(std::uint32_t value) override { data.value2 = value; }

  RegisteredInterface data;
};

class RecordRegister::Registration final : public CRecordRegistration {
 public:
  Registration(std::shared_ptr<Entries> allEntries, const RegisteredInterface& data) : entries(std::move(allEntries)) {
    const MutexLock lock(entries->mutex);
    place = entries->current.insert(entries->current.end(), data);
    ++entries->total;
  }
  ~Registration() { Withdraw(); }
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;

  void Withdraw() override {
    const MutexLock lock(entries->mutex);
    if (withdrawn) return;
    entries->current.erase(place);
    withdrawn = true;
  }

 private:
  std::shared_ptr<Entries> entries;
  std::list<RegisteredInterface>::iterator place;
  bool withdrawn = false;
};

RecordRegister::RecordRegister() : entries(std::make_shared<Entries>()) {}

std::shared_ptr<CKdiRecord>& RecordRegister::CreateRecord(std::shared_ptr<CKdiRecord>& out) {
  return out = std::make_shared<Record>();
}

std::shared_ptr<CRecordRegistration> RecordRegister::Register(const std::shared_ptr<CKdiRecord>& record) {
  const auto own = std::dynamic_pointer_cast<Record>(record);
  if (own == nullptr) throw std::runtime_error("the record was not created by this host");
  return std::make_shared<Registration>(entries, own->data);
}

std::vector<RegisteredInterface> RecordRegister::Registered() const {
  const MutexLock lock(entries->mutex);
  return {entries->current.begin(), entries->current.end()};
}

std::uint64_t RecordRegister::TotalRegistered() const {
  const MutexLock lock(entries->mutex);
  return entries->total;
}

class NetService::Object final : public CNetObject {
 public:
  explicit Object(std::shared_ptr<Counts> sharedCounts) : counts(std::move(sharedCounts)) { ++counts->made; }
  ~Object() {
    if (!released) ++counts->dropped;
  }
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  std::shared_ptr<CNetObject>& Release(std::shared_ptr<CNetObject>& out, std::uint32_t /*reserved*/) override {
    if (!released.exchange(true)) ++counts->released;
    out.reset();
    return out;
  }

 private:
  std::shared_ptr<Counts> counts;
  std::atomic<bool> released{false};
};

std::shared_ptr<CNetObject>& NetService::CreateObject(std::shared_ptr<CNetObject>& out, std::uint32_t /*value1*/,
                                                      std::uint32_t /*value2*/) {
  return out = std::make_shared<Object>(counts);
}

NetTotals NetService::Totals() const {
  NetTotals totals;
  totals.released = counts->released + counts->dropped;
  totals.made = counts->made;
  totals.held = totals.made - totals.released;
  return totals;
}

}  // namespace fenlux::refhost
