#include "ui/MainWindow.h"

#include "library/FlowLibrary.h"

#include <QHeaderView>
#include <QLabel>
#include <QStatusBar>
#include <QTreeWidget>

#include <map>

namespace varnel {

namespace {

QString qs(const std::string& text) {
    return QString::fromStdString(text);
}

} // namespace

MainWindow::MainWindow(FlowLibrary& library, QWidget* parent)
    : QMainWindow(parent), library_(library), tree_(new QTreeWidget(this)),
      status_(new QLabel(this)) {
    setWindowTitle("Varnel");
    tree_->setColumnCount(2);
    tree_->setHeaderLabels({tr("Flow"), tr("Screens")});
    tree_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    tree_->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    setCentralWidget(tree_);
    statusBar()->addWidget(status_, 1);
    connect(&library_, &FlowLibrary::changed, this, &MainWindow::refresh);
    refresh();
}

void MainWindow::refresh() {
    tree_->clear();
    std::map<std::string, std::map<std::string, std::vector<const FlowSummary*>>> grouped;
    for (const auto& s : library_.summaries())
        grouped[s.application.value_or("Sans application")][s.categoryL1.value_or("Uncategorized")]
            .push_back(&s);
    for (const auto& [app, categories] : grouped) {
        auto* appItem = new QTreeWidgetItem(tree_, {qs(app)});
        for (const auto& [category, flows] : categories) {
            auto* categoryItem = new QTreeWidgetItem(appItem, {qs(category)});
            for (const FlowSummary* flow : flows)
                new QTreeWidgetItem(categoryItem,
                                    {qs(flow->name), QString::number(flow->screenCount)});
        }
    }
    tree_->expandAll();

    const auto flows = library_.summaries().size();
    QString text = tr("Library: %1 — %2 %3")
                       .arg(QString::fromStdString(library_.root().string()))
                       .arg(flows)
                       .arg(flows == 1 ? tr("flow") : tr("flows"));
    if (const auto& error = library_.loadError())
        text = tr("Couldn’t read the library: %1").arg(qs(*error));
    const auto& report = library_.recoveryReport();
    if (const auto recovered = report.recoveredFlows.size(); recovered > 0)
        text += recovered == 1 ? tr(" — recovered an interrupted capture")
                               : tr(" — recovered %1 interrupted captures").arg(recovered);
    status_->setText(text);
}

} // namespace varnel
