// Building and sending of requests, and the translation of log lines.
#include "kdi/request.h"

#include "kdi/win_driver_interact.h"

namespace fenlux {

std::shared_ptr<CBuf> CWinDriverInteract::CreateRequest(records::Command command) {
  std::shared_ptr<CBuf> request;
  utility->CreateBuffer(request, true, records::kRequestSize, false);
  if (!request) throw std::runtime_error("[wdi] no request buffer!");
  auto& header = FieldsOf<records::RequestHeader>(*request);
  header.command = static_cast<std::uint32_t>(command);
  header.magic = records::kRequestMagic;
  return request;
}

std::shared_ptr<CPortClient> CWinDriverInteract::RequirePortClient() const {
  auto client = portClient.Load();
  if (!client) throw std::runtime_error("[wdi] no port client!");
  return client;
}

void CWinDriverInteract::Send(const std::shared_ptr<CBuf>& request) {
  std::shared_ptr<CBuf> dropped;
  RequirePortClient()->Send(request, dropped, true);
}

void CWinDriverInteract::SendValue(records::Command command, std::uint32_t value) {
  SendRequest<records::ValueRequest>(command, [&](records::ValueRequest& request) { request.value = value; });
}

std::string& CWinDriverInteract::LocalizeText(std::string& out, const char* text) {
  if (locale) return locale->TranslateText(out, text, text, 0);
  return out = text;
}

std::string CWinDriverInteract::LocalizedText(const char* text) {
  std::string out;
  LocalizeText(out, text);
  return out;
}

}  // namespace fenlux
