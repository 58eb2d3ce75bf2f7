// The same tag image through the NDEF classes of Qt: what the codec is measured against and checked
// with. Header only; for programs that link Qt's Nfc module.
#pragma once

#include <QByteArray>
#include <QNdefMessage>
#include <QNdefRecord>
#include <cstdint>
#include <string>
#include <string_view>

namespace peer {

constexpr char kHttps = 0x04;
constexpr char kTlvTag = 0x03;
constexpr char kTlvEnd = '\xFE';
constexpr std::size_t kTlvHead = 2;

struct Fields {
    std::string uri;   ///< without https://
    std::string type;  ///< of the second record
    std::string body;  ///< payload of the second record
};

inline QByteArray Bytes(std::string_view bytes) {
    return QByteArray(bytes.data(), static_cast<int>(bytes.size()));
}

inline std::string Build(const Fields& fields) {
    QNdefRecord uri;
    uri.setTypeNameFormat(QNdefRecord::NfcRtd);
    uri.setType(QByteArray("U", 1));
    uri.setPayload(QByteArray(1, kHttps) + Bytes(fields.uri));
    QNdefRecord media;
    media.setTypeNameFormat(QNdefRecord::Mime);
    media.setType(Bytes(fields.type));
    media.setPayload(Bytes(fields.body));
    QNdefMessage message;
    message.append(uri);
    message.append(media);
    const QByteArray records = message.toByteArray();
    std::string image;
    image += kTlvTag;
    image += static_cast<char>(records.size());
    image.append(records.constData(), static_cast<std::size_t>(records.size()));
    image += kTlvEnd;
    return image;
}

/// Empty fields for an image that is not two records of these kinds.
inline Fields Parse(std::string_view image) {
    if (image.size() <= kTlvHead) {
        return {};
    }
    const QNdefMessage message = QNdefMessage::fromByteArray(
        Bytes(image.substr(kTlvHead, static_cast<std::uint8_t>(image[1]))));
    if (message.size() != 2 || message[0].typeNameFormat() != QNdefRecord::NfcRtd ||
        message[1].typeNameFormat() != QNdefRecord::Mime || message[0].type() != "U") {
        return {};
    }
    const QByteArray uri = message[0].payload();
    if (uri.isEmpty() || uri[0] != kHttps) {
        return {};
    }
    return {uri.mid(1).toStdString(), message[1].type().toStdString(),
            message[1].payload().toStdString()};
}

}  // namespace peer
