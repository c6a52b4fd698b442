// Port clients over connections with a filter driver, and the port that makes them.
#include "refhost/services/filter_port_client.h"

#include <memory>
#include <stdexcept>
#include <utility>

#include "refhost/services/filter_connection_win.h"

namespace fenlux::refhost {
namespace {

// What the module holds. Letting go of it ends the connection.
class FilterPortClient final : public CPortClient {
 public:
  explicit FilterPortClient(std::shared_ptr<FilterConnection> connection) : connection_(std::move(connection)) {}
  ~FilterPortClient() { connection_->End("the module let go of it"); }
  FilterPortClient(const FilterPortClient&) = delete;
  FilterPortClient& operator=(const FilterPortClient&) = delete;

  void Connect() override { connection_->Connect(); }
  void Start() override { connection_->Start(); }
  void Wait() override { connection_->WaitEnded(); }
  void Close() override { connection_->End("the module closed it"); }
  void Send(const std::shared_ptr<CBuf>& request, std::shared_ptr<CBuf>& reply, bool /*flag*/) override {
    if (request == nullptr) throw std::invalid_argument("there is no request to send to the driver");
    connection_->Send(*request, reply.get());
  }

 private:
  const std::shared_ptr<FilterConnection> connection_;
};

}  // namespace

class FilterPort::Impl : public FilterBoard {
 public:
  using FilterBoard::FilterBoard;
};

bool FilterPortExists() { return true; }

FilterPort::FilterPort(const FilterPortSettings& settings, LogHook log)
    : impl_(std::make_shared<Impl>(LoadFilterFunctions(settings.filterLibrary), settings, std::move(log))) {}

FilterPort::~FilterPort() { Stop(); }

std::shared_ptr<CPortClient> FilterPort::MakePortClient(const std::string& portName,
                                                        const std::shared_ptr<CBuf>& connectContext,
                                                        std::uint32_t maxMessageSize, NotificationHandler handler,
                                                        std::uint32_t /*portValue*/) {
  return std::make_shared<FilterPortClient>(std::make_shared<FilterConnection>(
      impl_, PortWish{portName, connectContext, maxMessageSize, std::move(handler)}));
}

void FilterPort::Stop() { impl_->Stop(); }

FilterPortTotals FilterPort::Totals() const { return impl_->Totals(); }

}  // namespace fenlux::refhost
