#include "platform/linux/report/QtReportUploader.h"

#include <QFile>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrlQuery>

namespace wh::platform {

QtReportUploader::QtReportUploader() = default;

void QtReportUploader::post(Request request, std::function<void(Response)> done) {
  QUrl url(QString::fromStdString(request.url));
  QUrlQuery query;
  for (const auto& [name, value] : request.query) {
    query.addQueryItem(QString::fromStdString(name), value ? QString::fromStdString(*value) : QString());
  }
  url.setQuery(query);
  QFile body(QString::fromStdString(request.body.string()));
  if (!url.isValid() || !body.open(QIODevice::ReadOnly)) {
    done({0, "", url.isValid() ? "could not read " + request.body.string() : "not a valid address: " + request.url});
    return;
  }
  QNetworkRequest message(url);
  message.setHeader(QNetworkRequest::ContentTypeHeader, QString::fromStdString(request.contentType));
  message.setTransferTimeout(static_cast<int>(request.timeout * 1000));
  QNetworkReply* reply = network_.post(message, body.readAll());
  QObject::connect(reply, &QNetworkReply::finished, reply, [reply, done = std::move(done)] {
    reply->deleteLater();
    Response response;
    response.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    response.body = reply->readAll().toStdString();
    if (response.status == 0) response.error = reply->errorString().toStdString();
    done(std::move(response));
  });
}

}  // namespace wh::platform
