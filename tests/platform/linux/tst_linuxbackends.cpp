#include "platform/linux/DialogFileChooser.h"

#include <QApplication>
#include <QFileDialog>
#include <QLineEdit>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

// The save dialog under the offscreen platform: driven the way a user would, through
// the dialog the chooser opens.
class LinuxBackendsTest : public QObject {
    Q_OBJECT
private slots:
    void saveDialogProposesTheName();

private:
    // Once the chooser's dialog is up, runs act on it.
    void whenDialogOpens(std::function<void(QFileDialog*)> act);
};

void LinuxBackendsTest::whenDialogOpens(std::function<void(QFileDialog*)> act) {
    auto* poll = new QTimer(this);
    auto tries = std::make_shared<int>(0);
    connect(poll, &QTimer::timeout, this, [poll, tries, act] {
        auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
        if (!dialog && ++*tries < 500)
            return;
        poll->deleteLater();
        if (dialog)
            act(dialog);
    });
    poll->start(10);
}

void LinuxBackendsTest::saveDialogProposesTheName() {
    QTemporaryDir dir;
    DialogFileChooser chooser(dir.path());
    const SaveRequest request{"Export Token History", "mindmeter-2026-11-15.csv",
                              "Comma-separated values", "csv"};

    QString title;
    QStringList proposed;
    QStringList filters;
    whenDialogOpens([&](QFileDialog* d) {
        title = d->windowTitle();
        proposed = d->selectedFiles();
        filters = d->nameFilters();
        static_cast<QDialog*>(d)->accept(); // as the Save button does
    });
    QCOMPARE(chooser.chooseSaveLocation(request), dir.filePath("mindmeter-2026-11-15.csv"));
    QCOMPARE(title, QStringLiteral("Export Token History"));
    QCOMPARE(proposed, QStringList{dir.filePath("mindmeter-2026-11-15.csv")});
    QCOMPARE(filters, QStringList{"Comma-separated values (*.csv)"});

    // A name typed without the suffix gets it.
    whenDialogOpens([](QFileDialog* d) {
        d->findChild<QLineEdit*>("fileNameEdit")->setText("week");
        static_cast<QDialog*>(d)->accept(); // as the Save button does
    });
    QCOMPARE(chooser.chooseSaveLocation(request), dir.filePath("week.csv"));

    whenDialogOpens([](QFileDialog* d) { d->reject(); });
    QCOMPARE(chooser.chooseSaveLocation(request), std::nullopt);
}

QTEST_MAIN(LinuxBackendsTest)
#include "tst_linuxbackends.moc"
