// The connection to a private PipeWire daemon: its registry, a round trip, a daemon that is not
// there or goes away, and a wait that runs out.
#include <gtest/gtest.h>

#include "platform/linux/pipewire/PipeWireConnection.h"
#include "support/PulseRig.h"
#include "support/RigRequired.h"

namespace wh::platform {
namespace {

using test::PulseRig;
using Failure = PipeWireConnection::Failure;

std::unique_ptr<PipeWireConnection> openOrFail(const PipeWireConnection::Options& options) {
  auto opened = PipeWireConnection::open(options);
  if (auto* failure = std::get_if<Failure>(&opened)) ADD_FAILURE() << failure->text();
  auto* connection = std::get_if<std::unique_ptr<PipeWireConnection>>(&opened);
  return connection != nullptr ? std::move(*connection) : nullptr;
}

TEST(PipeWireConnectionTest, FindsTheRigsSinkWaitsWithALimitAndReportsTheDaemonsEnd) {
  PulseRig rig(test::SoundServer::pipeWire);
  REQUIRE_RIG(rig.available(), rig.whyNot());
  auto connection = openOrFail({.remote = rig.pipeWireSocket(), .timeout = 1.0});
  ASSERT_TRUE(connection);
  EXPECT_EQ(connection->roundtrip(), std::nullopt);

  auto speakers = connection->waitForGlobal(PW_TYPE_INTERFACE_Node, {{PW_KEY_NODE_NAME, PulseRig::laptopSpeakers},
                                                                     {PW_KEY_MEDIA_CLASS, "Audio/Sink"}});
  ASSERT_TRUE(std::holds_alternative<PipeWireConnection::Global>(speakers));
  const auto id = std::get<PipeWireConnection::Global>(speakers).id;
  ASSERT_TRUE(connection->global(id));
  EXPECT_NE(connection->global(id)->property(PW_KEY_NODE_DESCRIPTION), nullptr);

  // A node that is not there: the wait ends at the time limit.
  auto none = connection->waitForGlobal(PW_TYPE_INTERFACE_Node, {{PW_KEY_NODE_NAME, "no such node"}});
  ASSERT_TRUE(std::holds_alternative<Failure>(none));
  EXPECT_EQ(std::get<Failure>(none).kind, Failure::Kind::timeout);

  // A node that goes away leaves the registry.
  auto virtualSink = connection->waitForGlobal(PW_TYPE_INTERFACE_Node, {{PW_KEY_NODE_NAME, "rig_virtual_sink"}});
  ASSERT_TRUE(std::holds_alternative<PipeWireConnection::Global>(virtualSink));
  ASSERT_TRUE(rig.removeDevice("rig_virtual_sink"));
  EXPECT_TRUE(connection->waitUntilGone(std::get<PipeWireConnection::Global>(virtualSink).id));

  // The daemon ends: the connection says so, and waits end at once with that failure.
  rig.stop();
  auto lost = connection->roundtrip();
  ASSERT_TRUE(lost);
  EXPECT_EQ(lost->kind, Failure::Kind::lost) << lost->text();
  EXPECT_TRUE(connection->failure());
}

TEST(PipeWireConnectionTest, NoDaemonIsAClearFailure) {
  PulseRig rig(test::SoundServer::pipeWire);
  REQUIRE_RIG(rig.available(), rig.whyNot());
  const std::string socket = rig.pipeWireSocket();
  rig.stop();
  auto opened = PipeWireConnection::open({.remote = socket, .timeout = 1.0});
  ASSERT_TRUE(std::holds_alternative<Failure>(opened));
  const auto& failure = std::get<Failure>(opened);
  EXPECT_EQ(failure.kind, Failure::Kind::unreachable);
  EXPECT_NE(failure.text().find(socket), std::string::npos) << failure.text();
}

}  // namespace
}  // namespace wh::platform
