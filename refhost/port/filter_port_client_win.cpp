// Port clients for connections to a filter driver, and the port that creates them.
#include "refhost/port/filter_port_client.h"

#include <memory>
#include <stdexcept>
#include <utility>

#include "refhost/port/filter_connection_win.h"

namespace fenlux::refhost {
namespace {

// The module's end of a connection. Destroying it ends the connection.
class FilterPortClient final : public CPortClient {
 public:
  explicit FilterPortClient(std::shared_ptr<FilterConnection> shared) : connection(std::move(shared)) {}
  ~FilterPortClient() { connection->End("the module released it"); }
  FilterPortClient(const FilterPortClient&) = delete;
  FilterPortClient& operator=(const FilterPortClient&) = delete;

  void Connect() override { connection->Connect(); }
  void Start() override { connection->Start(); }
  void Wait() override { connection->WaitEnded(); }
  void Close() override { connection->End("the module closed it"); }
  void Send(const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply, bool /*flag*/) override {
    if (request == nullptr) throw std::invalid_argument("there is no request to send");
    connection->Send(*request, reply.get());
  }

 private:
  const std::shared_ptr<FilterConnection> connection;
};

}  // namespace

class FilterPort::Impl : public FilterPortState {
 public:
  using FilterPortState::FilterPortState;
};

bool FilterPortExists() { return true; }

FilterPort::FilterPort(const FilterPortSettings& settings, LogHook log)
    : impl(std::make_shared<Impl>(LoadFilterFunctions(settings.filterLibrary), settings, std::move(log))) {}

FilterPort::~FilterPort() { Stop(); }

std::shared_ptr<CPortClient> FilterPort::MakePortClient(const std::string& portName,
                                                        const std::shared_ptr<CBuf>& connectContext,
                                                        std::uint32_t maxMessageSize, NotificationHandler handler,
                                                        std::uint32_t portValue) {
  return std::make_shared<FilterPortClient>(std::make_shared<FilterConnection>(
      impl, PortRequest{portName, connectContext, maxMessageSize, std::move(handler), portValue}));
}

void FilterPort::Stop() { impl->Stop(); }

FilterPortTotals FilterPort::Totals() const { return impl->Totals(); }

}  // namespace fenlux::refhost
