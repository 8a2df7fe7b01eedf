#pragma once

#include <QLocalServer>
#include <QObject>
#include <QString>

class QLocalSocket;

#include <filesystem>

namespace varnel {

// How a second start of Varnel on a library reaches the first: it asks it to come forward, or
// to offer an archive for import, and leaves.
class InstanceChannel : public QObject {
    Q_OBJECT

public:
    // The channel's name for a library, the same for every path that leads to it.
    static QString nameFor(const std::filesystem::path& root);

    // Sends the request to the Varnel listening under `name`; false when none answers.
    // `archive` empty: come forward.
    static bool handOver(const QString& name, const QString& archive);

    explicit InstanceChannel(QObject* parent = nullptr);
    // Takes the name over (a crashed Varnel can leave it behind) and waits for later starts.
    bool listen(const QString& name);

signals:
    void activationRequested();
    void importRequested(const QString& archive);

private:
    void welcome();
    void answer(QLocalSocket* peer);

    QLocalServer server_;
};

} // namespace varnel
