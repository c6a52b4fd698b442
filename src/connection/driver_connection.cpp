// One connection with the driver: opens it, announces it, and serves it until it ends.
//
// Runs on the connection worker, which spends most of the time blocked in Wait. From Start on, delivery threads call
// the notification handler that is made here.
#include "common/log_codes.h"
#include "common/striped_handle.h"
#include "kdi/win_driver_interact.h"

namespace fenlux {

void CWinDriverInteract::RunDriverConnection() {
  if (stopped) {
    log->LogProblem(kLogCode, LocalizedText("Need stop."));
    return;
  }
  autoRefresh->Start();
  const StripedHandle<CWinDriverInteract> self(std::static_pointer_cast<CWinDriverInteract>(weak_from_this().lock()));
  const auto client = OpenPortClient(self);
  client->Connect();
  client->Start();
  ready = true;
  if (stopped) ready = false;  // a stop during the opening cleared `ready` too early
  log->LogEvent(kLogCode, LocalizedText("Driver Interact Ready."));
  SetSpspState(0);
  CheckDriverVersion();
  RegisterSystemImage(records::SystemProcess::kCsrss, "system32\\csrss.exe");
  RegisterSystemImage(records::SystemProcess::kServices, "system32\\services.exe");
  client->Wait();
  log->LogEvent(kLogCode, LocalizedText("Driver interact exit."));
}

std::shared_ptr<CPortClient> CWinDriverInteract::OpenPortClient(const StripedHandle<CWinDriverInteract>& self) {
  std::shared_ptr<CBuf> connectContext;
  utility->CreateBuffer(connectContext, true, sizeof(records::ConnectContext), false);
  if (!connectContext) throw std::runtime_error("[wdi] no connect context buffer!");
  auto& fields = FieldsOf<records::ConnectContext>(*connectContext);
  fields.magic = records::kConnectMagic;
  fields.version = records::kConnectVersion;
  fields.clientType = records::ClientType(clientTypeFlag);

  // Weak, because this object owns the port client, which keeps the handler. During the connection, every group of
  // delivery threads locks a handle of its own; a count that all of them change would make them wait for each other.
  const auto weakStriped = std::make_shared<const WeakStripedHandle<CWinDriverInteract>>(self);
  const NotificationHandler handler = [weakStriped, weak = weak_from_this()](
                                          const void* message, std::uint32_t size) -> std::shared_ptr<CBuf> {
    auto interact = weakStriped->Lock();
    if (!interact) interact = std::static_pointer_cast<CWinDriverInteract>(weak.lock());  // after the connection
    return interact ? interact->DispatchNotification(message, size) : nullptr;
  };

  std::string portName;
  utility->ToNarrowString(portName, records::kPortName);
  std::shared_ptr<CPortClient> client;
  winWork->CreatePortClient(client, portName, connectContext, records::kMaxMessageSize, handler, portValue);
  portClient.Store(client);
  if (!client) throw std::runtime_error("[wdi] no port client!");
  // A stop during CreatePortClient had no client to close yet; close it now.
  if (stopped) client->Close();
  return client;
}

}  // namespace fenlux
