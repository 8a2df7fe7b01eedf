#pragma once

#include <QFutureWatcher>
#include <QObject>
#include <QtConcurrent/QtConcurrentRun>

#include <utility>

namespace varnel {

// Runs `work` on the global thread pool and hands its result to `done` on `context`'s thread.
// When `context` goes first, `done` is never called; `work` must not touch `context`.
template <typename Work, typename Done>
void runInBackground(QObject* context, Work work, Done done) {
    using Result = decltype(work());
    auto* watcher = new QFutureWatcher<Result>(context);
    QObject::connect(watcher, &QFutureWatcherBase::finished, context,
                     [watcher, done = std::move(done)]() mutable {
                         done(watcher->result());
                         watcher->deleteLater();
                     });
    watcher->setFuture(QtConcurrent::run(std::move(work)));
}

} // namespace varnel
