// When a service reports its status, and that it is alive.
#include "refhost/app/service/service_reports.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "tests/support/temporary_directory.h"
#include "tests/unit/refhost/set_environment.h"

namespace fenlux::refhost {
namespace {

using std::chrono::milliseconds;
using testing::TemporaryDirectory;

class ServiceReportsTest : public ::testing::Test {
 protected:
  ServiceReportsTest() : socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const std::string path = (directory.Path() / "notify").string();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    EXPECT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    testing::SetEnvironmentText("NOTIFY_SOCKET", path);
    testing::SetEnvironmentText("WATCHDOG_USEC", "900000");  // so a report is due every 300 milliseconds
  }
  ~ServiceReportsTest() override {
    testing::UnsetEnvironmentText("NOTIFY_SOCKET");
    testing::UnsetEnvironmentText("WATCHDOG_USEC");
    ::close(socket);
  }

  // What has been sent since the last call.
  std::vector<std::string> Sent() const {
    std::vector<std::string> messages;
    char message[256];
    for (;;) {
      const ssize_t size = ::recv(socket, message, sizeof(message), MSG_DONTWAIT);
      if (size < 0) return messages;
      messages.emplace_back(message, static_cast<std::size_t>(size));
    }
  }

  using Messages = std::vector<std::string>;

  const TemporaryDirectory directory;
  const int socket;
  const ServiceReports::Clock::time_point start = ServiceReports::Clock::now();
};

TEST_F(ServiceReportsTest, AreSentThreeTimesPerTimeout) {
  const ServiceManager manager;
  EXPECT_EQ(manager.WatchdogTimeout(), milliseconds(900));
  ServiceReports reports(manager, [] { return std::string("Serving"); });
  reports.Poll(start);
  EXPECT_EQ(Sent(), (Messages{"WATCHDOG=1", "STATUS=Serving"}));
  reports.Poll(start + milliseconds(299));
  EXPECT_EQ(Sent(), Messages());
  reports.Poll(start + milliseconds(300));
  EXPECT_EQ(Sent(), (Messages{"WATCHDOG=1"}));
}

TEST_F(ServiceReportsTest, StopIfTheCountsOfTheHostCannotBeRead) {
  const ServiceManager manager;
  ServiceReports reports(manager, []() -> std::string { throw std::bad_alloc(); });
  EXPECT_THROW(reports.Poll(start), std::bad_alloc);
  EXPECT_EQ(Sent(), Messages());
}

TEST_F(ServiceReportsTest, SendANewStatusOnce) {
  const ServiceManager manager;
  std::string status = "Waiting for the driver";
  ServiceReports reports(manager, [&status] { return status; });
  reports.Poll(start);
  Sent();
  status = "Connected to the driver";
  reports.Poll(start + milliseconds(300));
  EXPECT_EQ(Sent(), (Messages{"WATCHDOG=1", "STATUS=Connected to the driver"}));
  reports.Poll(start + milliseconds(600));
  EXPECT_EQ(Sent(), (Messages{"WATCHDOG=1"}));
}

}  // namespace
}  // namespace fenlux::refhost
