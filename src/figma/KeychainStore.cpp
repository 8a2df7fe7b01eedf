#include "figma/KeychainStore.h"

#include "library/Utf8.h"

#include <qt6keychain/keychain.h>

#include <QEventLoop>

namespace varnel {

namespace {

// Runs a keychain job to its end. The job is not deleted behind our back, so its results
// can be read afterwards.
bool finish(QKeychain::Job& job) {
    job.setAutoDelete(false);
    job.setInsecureFallback(false);
    QEventLoop loop;
    QObject::connect(&job, &QKeychain::Job::finished, &loop, &QEventLoop::quit);
    job.start();
    loop.exec();
    return job.error() == QKeychain::NoError;
}

} // namespace

std::optional<std::string> KeychainStore::data(const std::string& key) {
    QKeychain::ReadPasswordJob job(QString::fromStdString(service_));
    job.setKey(QString::fromStdString(key));
    if (!finish(job))
        return std::nullopt;
    const QByteArray bytes = job.binaryData();
    return std::string(bytes.constData(), static_cast<std::size_t>(bytes.size()));
}

void KeychainStore::set(const std::string& data, const std::string& key) {
    remove(key);
    QKeychain::WritePasswordJob job(QString::fromStdString(service_));
    job.setKey(QString::fromStdString(key));
    // Text is kept as text, so the desktop's own tools show the token as it is.
    if (Utf8::isValid(data))
        job.setTextData(QString::fromStdString(data));
    else
        job.setBinaryData(QByteArray(data.data(), static_cast<qsizetype>(data.size())));
    finish(job);
}

void KeychainStore::remove(const std::string& key) {
    QKeychain::DeletePasswordJob job(QString::fromStdString(service_));
    job.setKey(QString::fromStdString(key));
    finish(job);
}

} // namespace varnel
