// Construction of the driver interface: obtains the host's services and registers the interface.
#include "kdi/kdi_base.h"

#include "common/required.h"

namespace fenlux {
namespace {

// Returns an empty handle if the host does not register driver interfaces.
std::shared_ptr<CRecordRegistration> RegisterInterface(CGlobalContext& context, CCfg& cfg, std::uint32_t portValue,
                                                       std::uint32_t value1, std::uint32_t value2) {
  const std::shared_ptr<CRecordFactory> factory = cfg.GetRecordFactory();
  if (!factory) return {};
  std::shared_ptr<CKdiRecord> record;
  factory->CreateRecord(record);
  if (!record) return {};
  record->SetName("KDIB");
  record->SetPortValue(portValue);
  record->SetValue1(value1);
  record->SetValue2(value2);
  const std::shared_ptr<CRecordService> service = context.GetRecordService();
  return service ? service->Register(record) : nullptr;
}

}  // namespace

CKDIBase::CKDIBase(const std::shared_ptr<CGlobalContext>& globalContext)
    : context(Required(globalContext, "[cl]Bad global class!")) {
  utility = Required(context->GetUtility(), "bad utility init!");
  locale = Required(context->GetLocale(), "bad locale init!");
  log = Required(context->GetLog(), "bad log init!");
  cfg = Required(context->GetCfg(), "bad cfg init!");
  const auto net = Required(context->GetNet(), "bad net init!");
  cfgEx = Required(context->GetCfgEx(), "bad cfgex init!");
  arpMgmt = Required(context->GetArpMgmt(), "bad arpmgmt init!");
  aoArp = Required(context->GetAoArp(), "bad ao_arp init!");

  cfgExOption = cfgEx->GetDriverInterfaceFlag();
  const std::uint32_t value1 = cfgEx->GetRecordValue1();
  const std::uint32_t value2 = cfgEx->GetRecordValue2();
  net->CreateObject(netObject, value1, value2);
  clientTypeFlag = cfgEx->GetClientTypeFlag();
  portValue = cfgEx->GetPortValue();
  recordHandle = RegisterInterface(*context, *cfg, portValue, value1, value2);
}

}  // namespace fenlux
