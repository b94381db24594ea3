#include "dsp/settings/DSPSetting.h"
#include "dsp/settings/DeviceFields.h"
#include "dsp/settings/DeviceSettingsManager.h"
#include "dsp/settings/RecordJSON.h"
#include "foundation/Base64.h"

namespace velorin {
namespace {

template <class Value>
void take(recordJSON::ObjectReader& from, const DeviceField<Value>& field, DeviceSettings& into) {
  Value& member = into.*field.member;
  if constexpr (std::is_same_v<Value, bool>) {
    member = from.boolean(field.name, member);
  } else if constexpr (std::is_same_v<Value, std::string>) {
    member = from.text(field.name, member);
  } else if constexpr (std::is_arithmetic_v<Value>) {
    const double number =
        std::is_integral_v<Value> ? from.whole(field.name, 0) : from.number(field.name, 0);
    if (field.takes(number)) putNumber(into, NumberIn<DeviceSettings>(field.member), number);
  } else {
    member = from.bytesOrNull(field.name);
  }
}

}  // namespace

std::string toJSON(const DeviceSettings& settings) {
  nlohmann::ordered_json object;
  forEachDeviceField([&](const auto& field) {
    const auto& member = settings.*field.member;
    auto& value = object[std::string(field.name)];
    using Value = std::decay_t<decltype(member)>;
    if constexpr (std::is_same_v<Value, float>) {
      value = recordJSON::finite(asWritten(member));
    } else if constexpr (std::is_same_v<Value, double>) {
      value = recordJSON::finite(member);
    } else if constexpr (std::is_same_v<Value, std::optional<recordJSON::Bytes>>) {
      if (member) value = base64::encode(*member);
    } else {
      value = member;
    }
  });
  return recordJSON::written(object);
}

Result<DeviceSettings, SettingsError> deviceSettingsFromJSON(std::string_view json) {
  auto read = recordJSON::ObjectReader::read(json);
  if (!read) return read.error();
  recordJSON::ObjectReader& object = read.value();
  DeviceSettings settings;
  forEachDeviceField([&](const auto& field) { take(object, field, settings); });
  if (object.hasFailed()) return object.error();
  return settings;
}

}  // namespace velorin
