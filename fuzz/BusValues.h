#pragma once
// Values as Qt D-Bus hands them over after reading a message: every basic type of the bus, object
// paths and signatures, byte and string arrays, variants and dictionaries, made from fuzz input.

#include <fuzzer/FuzzedDataProvider.h>

#include <QByteArray>
#include <QDBusObjectPath>
#include <QDBusSignature>
#include <QDBusVariant>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>

#include <string>

namespace wh::fuzz {

inline QString busText(FuzzedDataProvider& input) {
  // The bus carries UTF-8 only; Qt reads it into UTF-16.
  const std::string bytes = input.ConsumeRandomLengthString(64);
  return QString::fromUtf8(bytes.data(), static_cast<qsizetype>(bytes.size()));
}

// Object paths are checked by Qt: only valid ones reach a reader.
inline QString objectPath(FuzzedDataProvider& input) {
  QString path;
  for (const char c : input.ConsumeRandomLengthString(32)) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
    if (plain) path += QLatin1Char(c);
    if (!plain && !path.endsWith(QLatin1Char('/'))) path += QLatin1Char('/');
  }
  if (path.endsWith(QLatin1Char('/'))) path.chop(1);
  return path.startsWith(QLatin1Char('/')) ? path : QLatin1Char('/') + path;
}

inline QVariant busValue(FuzzedDataProvider& input, int depth = 0) {
  switch (input.ConsumeIntegralInRange(0, 16)) {
    case 0: return input.ConsumeBool();
    case 1: return QVariant::fromValue(input.ConsumeIntegral<uchar>());
    case 2: return QVariant::fromValue(input.ConsumeIntegral<short>());
    case 3: return QVariant::fromValue(input.ConsumeIntegral<ushort>());
    case 4: return input.ConsumeIntegral<int>();
    case 5: return input.ConsumeIntegral<uint>();
    case 6: return input.ConsumeIntegral<qlonglong>();
    case 7: return input.ConsumeIntegral<qulonglong>();
    case 8: return input.ConsumeFloatingPoint<double>();
    case 9: return QVariant::fromValue(QDBusObjectPath(objectPath(input)));
    case 10: return QVariant::fromValue(QDBusSignature(input.PickValueInArray({"", "s", "v", "a{sv}", "(ii)", "ao"})));
    case 11: return QByteArray::fromStdString(input.ConsumeRandomLengthString(64));
    case 12: {
      QStringList list;
      for (int count = input.ConsumeIntegralInRange(0, 4); count > 0; --count) list << busText(input);
      return list;
    }
    case 13:
      if (depth < 3) return QVariant::fromValue(QDBusVariant(busValue(input, depth + 1)));
      return {};
    case 14:
      if (depth < 3) {
        QVariantMap map;
        for (int count = input.ConsumeIntegralInRange(0, 4); count > 0; --count) map[busText(input)] = busValue(input, depth + 1);
        return map;
      }
      return {};
    case 15: return {};
    default: return busText(input);
  }
}

}  // namespace wh::fuzz
