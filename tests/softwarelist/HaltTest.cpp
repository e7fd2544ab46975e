// HaltExecution from a second thread while the package manager is slow: the
// run gives up after collecting, leaves the reply as the host passed it, and the
// maps of the earlier run stay pending. Also built under ThreadSanitizer.
#include "Scenario.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace {

using Strings = std::vector<std::string>;

TEST(Halt, HaltDuringCollectionKeepsReplyAndPendingMaps) {
    scenario::Session session;
    session.SetPackages({{"early", "early^1^Early^Debian"}});
    session.Start();
    CNDKMessage first;
    ASSERT_EQ(session.Run(0, first), 3);   // pending, not acknowledged

    session.SetPackages({{"late", "late^2^Late^Debian"}});
    session.SetListDelay(2);
    std::thread halter([&session] {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!session.ListStarted() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        session.lib().HaltExecution(false);
    });
    CNDKMessage reply(3);
    reply.Add(std::string("host"));
    reply.Add(1);
    reply.Add(2);
    reply.Add(3);
    reply.Add(4);   // a fifth element: LimitSize(4) must not have run either
    const auto before = scenario::Bytes(reply);
    const int result = session.Run(0, reply);
    halter.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(scenario::Bytes(reply), before);

    // The cancel flag holds until the next initialisation.
    session.SetListDelay(0);
    CNDKMessage refused;
    EXPECT_EQ(session.Run(0, refused), 0);
    EXPECT_EQ(refused.GetElements().GetSize(), 0);

    // The acknowledgement still stores the first run's maps.
    session.Ack();
    CInvMap stored;
    ASSERT_TRUE(stored.FromFile(session.DataFile("SWPackage.bin")));
    EXPECT_EQ(scenario::Keys(stored), (Strings{"early\\Debian\\1"}));

    ASSERT_EQ(session.Init(true), 1);
    CNDKMessage again;
    EXPECT_EQ(session.Run(0, again), 3);
    session.Ack();
    session.Stop();
}

}  // namespace
