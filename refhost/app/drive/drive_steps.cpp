// Both values of every switch, every mode, and lists with and without items.
#include "refhost/app/drive/drive_steps.h"

#include <boost/filesystem/operations.hpp>
#include <string>

#include "refhost/app/control/net_item_file.h"

namespace fenlux::refhost {
namespace {

// Object type 3 is never used by the policy.
constexpr char kObjectType[] = "3";

std::string Items(std::size_t count) {
  NetControlItems items(count);
  for (NetControlItem& item : items) {
    item.opaque.fill(0);
    item.value = 1;
  }
  return EncodeNetItems(items);
}

}  // namespace

std::vector<DriveStep> DriveSteps(bool emulated) {
  const std::string directory = boost::filesystem::temp_directory_path().string();
  std::vector<DriveStep> steps{
      {"version", {}},
      {"debug-dump", {}},
      {"send-config", {}},
      {"spsp", {}},
      {"spsp", {{"skip-middle", ""}}},
      {"grpm", {{"mode", "3"}}},
      {"grpm", {{"mode", "1"}}},
      {"grsp", {{"mode", "3"}}},
      {"grsp", {{"mode", "1"}}},
      {"grdto", {{"value", "4294967295"}}},
      {"grdto", {{"value", "0"}}},
      {"grhara", {{"state", "on"}}},
      {"grhara", {{"state", "off"}}},
      {"monitor add", {{"type", kObjectType}, {"path", directory}}},
      {"monitor send", {{"type", kObjectType}}},
      {"monitor clear", {{"type", kObjectType}}},
      {"net-control add", {{"type", "1"}, {"items", Items(2)}}},
      {"net-control add", {{"type", "2"}, {"items", Items(0)}}},
      {"net-control apply", {{"items", Items(1)}}},
      {"net-control apply", {{"items", Items(0)}, {"alternate", ""}}},
      {"net-control mode3", {}},
      {"net-control mode1", {}},
      {"spsp", {}},
  };
  if (emulated) steps.push_back({"register-process", {{"kind", "2"}, {"process", "4"}}});
  return steps;
}

}  // namespace fenlux::refhost
