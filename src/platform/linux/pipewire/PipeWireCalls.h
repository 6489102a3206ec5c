#pragma once
// libpipewire's method calls are C macros that cast the object to its interface; these functions
// make those calls once, here, so the casts stay out of the code that uses them.

#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>
#include <spa/param/audio/format-utils.h>

#include <cstdint>

namespace wh::platform::pw {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"
#pragma GCC diagnostic ignored "-Wpedantic"  // clang: the macros are GNU statement expressions
#pragma GCC diagnostic ignored "-Wnull-dereference"  // GCC, optimising: the macros read the interface unchecked

inline int addListener(pw_core* core, spa_hook* hook, const pw_core_events* events, void* data) {
  return pw_core_add_listener(core, hook, events, data);
}
inline int addListener(pw_registry* registry, spa_hook* hook, const pw_registry_events* events, void* data) {
  return pw_registry_add_listener(registry, hook, events, data);
}
inline pw_registry* registry(pw_core* core) { return pw_core_get_registry(core, PW_VERSION_REGISTRY, 0); }
inline int sync(pw_core* core) { return pw_core_sync(core, PW_ID_CORE, 0); }
// A proxy for an object the daemon makes with `factory` ("link-factory", "adapter").
inline pw_proxy* createObject(pw_core* core, const char* factory, const char* type, std::uint32_t version,
                              const spa_dict* properties) {
  return static_cast<pw_proxy*>(pw_core_create_object(core, factory, type, version, properties, 0));
}

inline pw_metadata* bindMetadata(pw_registry* registry, std::uint32_t id) {
  return static_cast<pw_metadata*>(pw_registry_bind(registry, id, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, 0));
}
inline int addListener(pw_metadata* metadata, spa_hook* hook, const pw_metadata_events* events, void* data) {
  return pw_metadata_add_listener(metadata, hook, events, data);
}
// `type` and `value` null: the key is removed.
inline int setProperty(pw_metadata* metadata, std::uint32_t subject, const char* key, const char* type,
                       const char* value) {
  return pw_metadata_set_property(metadata, subject, key, type, value);
}
// Interleaved 32-bit float stereo (FL, FR) at `rate`, built in `builder`'s memory.
inline const spa_pod* stereoFloatFormat(spa_pod_builder* builder, std::uint32_t rate) {
  spa_audio_info_raw info{};
  info.format = SPA_AUDIO_FORMAT_F32;
  info.rate = rate;
  info.channels = 2;
  info.position[0] = SPA_AUDIO_CHANNEL_FL;
  info.position[1] = SPA_AUDIO_CHANNEL_FR;
  return spa_format_audio_raw_build(builder, SPA_PARAM_EnumFormat, &info);
}

#pragma GCC diagnostic pop

}  // namespace wh::platform::pw
