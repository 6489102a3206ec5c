#pragma once
// The names on the session bus that the agent and the settings program share. Both programs
// include this header; nothing else spells them.

namespace wh::platform::bus {

// Owned by the running agent: a second instance finds the first through it.
inline constexpr const char* agentName = "com.quintelbarrows.wrenhaven";
// Owned by the running settings program: the agent finds (and ends) a running copy through it.
inline constexpr const char* settingsName = "com.quintelbarrows.wrenhaven.settings";
// Where both signals and the agent's Reopen method live.
inline constexpr const char* objectPath = "/com/quintelbarrows/wrenhaven";
inline constexpr const char* interfaceName = "com.quintelbarrows.wrenhaven";
// The settings program's commands: the command text (s) and its user info (a{sv}).
inline constexpr const char* commandSignal = "command";
// The agent's status changed: no arguments.
inline constexpr const char* statusSignal = "status";
// Asked of the running agent by a second instance.
inline constexpr const char* reopenMethod = "Reopen";

}  // namespace wh::platform::bus
