// Several threads at once: each operation behaves as documented and, under the thread sanitizer, there is no data race.
#include <boost/thread/barrier.hpp>

#include "tests/unit/module/notification_test.h"
#include "tests/unit/module/worker_test.h"

namespace fenlux::testing {
namespace {

// Runs each body on its own thread, starting all at the same time, and waits for all of them.
void RunTogether(std::vector<std::function<void()>> bodies) {
  boost::barrier start(static_cast<unsigned>(bodies.size()));
  std::vector<std::thread> threads;
  for (auto& body : bodies) {
    threads.emplace_back([&start, body = std::move(body)] {
      start.wait();
      body();
    });
  }
  for (std::thread& thread : threads) thread.join();
}

class Concurrency : public ModuleTest {
 protected:
  Concurrency() { Settings().recordedRequestBytes = 64; }
};

}  // namespace

TEST_F(Concurrency, MonitorBatchesDoNotInterleaveAndNothingIsLostOrSentTwice) {
  constexpr int kPerThread = 100;
  const auto interact = ReadyInteract();
  std::vector<std::function<void()>> bodies;
  for (int thread = 0; thread < 3; ++thread) {
    bodies.emplace_back([&, thread] {
      for (int i = 0; i < kPerThread; ++i) {
        const std::string path = "/no/" + std::to_string(thread) + "-" + std::to_string(i);
        interact->AddMonitorObject(false, path.c_str(), 1 + i % 3);
        if (i % 7 == 0) interact->SendMonitorObjects(1 + i % 3);
      }
    });
  }
  RunTogether(std::move(bodies));
  interact->SendMonitorObjects(1);
  interact->SendMonitorObjects(3);

  std::set<std::string> added;
  std::uint8_t batch = 0;
  for (const SentRequest& request : host.Requests()) {
    const std::uint8_t type = request.bytes.at(12);
    if (batch != 0) {
      EXPECT_EQ(type, batch) << "a request of another batch is in between";
    }
    batch = request.command == 3 ? std::uint8_t{0} : type;
    if (request.command != 1) continue;
    std::string path;
    for (std::size_t i = 25; i < 63 && request.bytes[i] != 0; i += 2) path += static_cast<char>(request.bytes[i]);
    EXPECT_TRUE(added.insert(path).second) << path << " was sent twice";
  }
  EXPECT_EQ(added.size(), 3u * kPerThread);
}

TEST_F(Concurrency, ListsMayBeClearedFilledAndSentFromManyThreads) {
  const auto interact = ReadyInteract();
  std::vector<std::function<void()>> bodies;
  for (int type = 1; type <= 3; ++type) {
    bodies.emplace_back([&, type] {
      for (int i = 0; i < 100; ++i) interact->AddMonitorObject(false, "/a", type);
    });
    bodies.emplace_back([&, type] {
      for (int i = 0; i < 30; ++i) interact->SendMonitorObjects(type);
    });
    bodies.emplace_back([&, type] {
      for (int i = 0; i < 30; ++i) interact->ClearMonitorObjects(type);
    });
  }
  bodies.emplace_back([&] { interact->StopInteract(); });
  RunTogether(std::move(bodies));
  EXPECT_TRUE(interact->ClearMonitorObjects(1));
  EXPECT_TRUE(interact->ClearMonitorObjects(3));
  Forget();
  interact->SendMonitorObjects(1);
  interact->SendMonitorObjects(3);
  EXPECT_EQ(host.RequestsOf(1).size(), 0u);
  EXPECT_EQ(host.RequestsOf(3).size(), 2u);
}

TEST_F(Concurrency, NotificationsAreAnsweredWhileTheCacheIsRefreshedAndTheInterfaceStopped) {
  constexpr int kPerThread = 300;
  Settings().running = [] { return std::set<std::uint64_t>{1, 2, 3, 4}; };
  Settings().identityTextAdded = true;
  const auto info = std::make_shared<CAutoRefreshProcessInfo>(host.Context());
  const auto interact = ReadyInteract();
  Gate().SetJournal(false);
  Settings().recordsKept = false;
  std::atomic<int> answered{0};
  const auto deliver = [&](int thread) {
    const auto client = host.PortClient();
    for (int i = 0; i < kPerThread; ++i) {
      const auto reply = client->Deliver(NotificationBuilder(4097, static_cast<std::uint64_t>((i + thread) % 8))
                                             .Item1(u"/p")
                                             .Item2(u"/q")
                                             .IdentityPresent(1)
                                             .Build());
      if (reply && BytesOf(reply).at(12) == 2) ++answered;
    }
  };
  // The refresh thread runs a pass whenever the clock advances.
  RunTogether({[&] { deliver(0); }, [&] { deliver(1); }, [&] { deliver(2); },
               [&] {
                 for (int i = 0; i < 50; ++i) Clock().Advance(std::chrono::hours(1));
               },
               [&] {
                 for (int i = 0; i < 50; ++i) interact->GetDriverVersion();
               },
               [&] { interact->StopInteract(); }});
  EXPECT_EQ(answered, 3 * kPerThread);
}

TEST_F(Concurrency, LookupsAndRefreshesShareTheCache) {
  Settings().running = [] { return std::set<std::uint64_t>{0, 1, 2, 3, 4, 5}; };
  const auto info = std::make_shared<CAutoRefreshProcessInfo>(host.Context());
  info->RefreshAll();
  Gate().SetJournal(false);
  std::atomic<bool> wrong{false};
  const auto lookUp = [&] {
    for (std::uint32_t i = 0; i < 500; ++i) {
      const auto record = info->GetProcessInfo(i % 10);
      if (!record || record->narrowInfo != "narrow-" + std::to_string(i % 10)) wrong = true;
    }
  };
  const auto refresh = [&] {
    for (int i = 0; i < 50; ++i) info->RefreshAll();
  };
  RunTogether({lookUp, lookUp, refresh, refresh, [&] {
                 for (int i = 0; i < 50; ++i) {
                   Settings().cacheBypassed = i % 2 == 0;
                   std::this_thread::yield();
                 }
               }});
  EXPECT_FALSE(wrong);
}

TEST_F(Concurrency, TheCacheGrowsWhileOthersSearchIt) {
  constexpr std::uint32_t kProcesses = 3000;  // more than a new cache has room for
  Settings().running = [] { return std::set<std::uint64_t>{}; };
  const auto info = std::make_shared<CAutoRefreshProcessInfo>(host.Context());
  info->RefreshAll();
  Gate().SetJournal(false);
  std::atomic<bool> wrong{false};
  const auto lookUp = [&] {
    for (std::uint32_t process = 1; process <= kProcesses; ++process) {
      const auto record = info->GetProcessInfo(process);
      if (!record || record->narrowInfo != "narrow-" + std::to_string(process)) wrong = true;
      const auto earlier = info->GetProcessInfo(1 + process / 2);
      if (!earlier || earlier->narrowInfo != "narrow-" + std::to_string(1 + process / 2)) wrong = true;
    }
  };
  RunTogether({lookUp, lookUp, lookUp});
  EXPECT_FALSE(wrong);
  const auto cached = info->GetProcessInfo(kProcesses);
  EXPECT_EQ(info->GetProcessInfo(kProcesses), cached);
}

TEST_F(Concurrency, AStopFromAnyThreadAtAnyTimeEndsTheRun) {
  Settings().waitBlocks = true;
  for (int round = 0; round < 100; ++round) {
    const auto interact = std::make_shared<CWinDriverInteract>(host.Context());
    RunTogether({[&] { interact->RunDriverConnection(); },
                 [&] {
                   for (int i = 0; i < round % 10; ++i) std::this_thread::yield();
                   interact->StopInteract();
                 },
                 [&] { interact->Shutdown(); }});
    EXPECT_TRUE(interact->IsStopRequested());
    EXPECT_EQ(Gate().Count("CRecordRegistration::Withdraw"), 1u);
    EXPECT_EQ(Gate().Count("CNetObject::Release"), 1u);
    Forget();
  }
}

TEST_F(Concurrency, TheHandlerOutlivesTheInterfaceUnderLoad) {
  for (int round = 0; round < 30; ++round) {
    auto interact = ReadyInteract();
    const auto client = host.PortClient();
    RunTogether({[&] {
                   for (int i = 0; i < 20; ++i) client->Deliver(NotificationBuilder(4098).Build());
                 },
                 [&] { interact.reset(); }});
    EXPECT_FALSE(client->Deliver(NotificationBuilder(4098).Build()));
  }
}

TEST_F(Concurrency, ConcurrentRequestsAreNotTorn) {
  const auto interact = ReadyInteract();
  RunTogether({[&] {
                 for (int i = 0; i < 50; ++i) interact->SetGrspSwitch(true, 1);
               },
               [&] {
                 for (int i = 0; i < 50; ++i) interact->SetGrdtoValue(true, 0x01010101);
               },
               [&] {
                 for (int i = 0; i < 50; ++i) interact->RegisterSystemProcess(2, 7);
               },
               [&] {
                 for (int i = 0; i < 50; ++i) interact->RegisterSystemProcess(3, 8);
               },
               [&] {
                 for (int i = 0; i < 50; ++i) interact->SetSpspState(0);
               }});
  EXPECT_EQ(host.RequestsOf(6).size(), 50u);
  EXPECT_EQ(host.RequestsOf(8).size(), 50u);
  EXPECT_EQ(host.RequestsOf(12).size(), 50u);
  for (const SentRequest& request : host.RequestsOf(20)) {
    EXPECT_EQ(request.bytes.at(16), request.bytes.at(12) == 2 ? 7 : 8);
  }
}

namespace {
class ModuleConcurrency : public WorkerTest {};
}  // namespace

TEST_F(ModuleConcurrency, TheHostMayDriveTheModuleFromManyThreads) {
  Settings().recordedRequestBytes = 16;
  Settings().waitBlocks = true;
  Clock().PassAtOnce(100ms);
  impl->StartWork();
  ASSERT_TRUE(Gate().AwaitCount("CPortClient::Wait", 1));
  std::atomic<int> ended{0};
  RunTogether({[&] {
                 for (int i = 0; i < 20; ++i) {
                   // A stop may still apply to the previous interface; stop again until it does not.
                   ASSERT_TRUE(
                       RepeatUntil([] { return Clock().Parked(5s) != 0; }, [&] { impl->StopWork(i % 2 == 0); }));
                   Clock().Advance(5s);
                 }
                 ++ended;
               },
               [&] {
                 for (int i = 0; i < 200; ++i) impl->NotifyPolicyChanged();
                 ++ended;
               },
               [&] {
                 for (int i = 0; i < 200; ++i) {
                   const auto interact = impl->GetDriverInteract();
                   if (interact) interact->SetGrdtoValue(true, 1);
                   try {
                     EXPECT_EQ(impl->GetDriverPortValue(), 77u);
                   } catch (const std::runtime_error& error) {
                     EXPECT_STREQ(error.what(), "DCI,Driver Interact NOT ready.");
                   }
                 }
                 ++ended;
               },
               [&] {
                 for (int i = 0; i < 200; ++i) EXPECT_EQ(impl->Translate("text"), "text");
                 ++ended;
               }});
  EXPECT_EQ(ended, 4);
  // Leaves an open connection behind.
  EXPECT_TRUE(RepeatUntil([&] { return impl->GetDriverInteract() != nullptr; }, [] {}));
}

}  // namespace fenlux::testing
