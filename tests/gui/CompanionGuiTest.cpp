// SPDX-License-Identifier: MIT
// Drives the real Vorn Companion window (under Xvfb) against a private dev
// cloud: typing, clicks and the file dialog, as a user would. Every
// blocking call the window runs is timed for the longest gap between its
// repaints; a gap over a second is a frozen window and fails the test.
//
// With VORN_COMPANION_SCREENSHOTS=DIR set, it also saves screenshots of the
// window as the X server shows it (ImageMagick's import), for the docs:
// scripts/screenshots.

#include "RepaintGapRecorder.h"

#include <BusyState.h>
#include <CloudAdmin.h>
#include <CompanionWindow.h>
#include <DevCloudProcess.h>

#include <QAbstractNativeEventFilter>
#include <QApplication>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <memory>

#include <signal.h>
#include <xcb/xcb.h>

namespace {

const qint64 kFrozenMs = 1000;
const int kUiTimeoutMs = 30000;

// Calls back when the X server reports that a window's name (WM_NAME)
// changed: a marker that arrives after whatever input the server sent the
// window before it (the server keeps the order of one client's events).
class PropertyChangeWatcher : public QAbstractNativeEventFilter {
public:
    PropertyChangeWatcher(WId window, std::function<void()> seen) : m_window(window), m_seen(std::move(seen))
    {
        qApp->installNativeEventFilter(this);
    }
    ~PropertyChangeWatcher() override { qApp->removeNativeEventFilter(this); }

#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    bool nativeEventFilter(const QByteArray& type, void* message, qintptr*) override
#else
    bool nativeEventFilter(const QByteArray& type, void* message, long*) override
#endif
    {
        const auto* event = static_cast<const xcb_generic_event_t*>(message);
        if (type == "xcb_generic_event_t" && (event->response_type & 0x7f) == XCB_PROPERTY_NOTIFY
            && reinterpret_cast<const xcb_property_notify_event_t*>(event)->window == m_window
            && reinterpret_cast<const xcb_property_notify_event_t*>(event)->atom == XCB_ATOM_WM_NAME && m_seen) {
            m_seen();
            m_seen = nullptr;
        }
        return false;
    }

private:
    WId m_window;
    std::function<void()> m_seen;
};

// Real X input, through the XTEST extension, as a user's mouse gives it.
int xdotool(const QStringList& arguments) { return QProcess::execute(QStringLiteral("xdotool"), arguments); }

} // namespace

class CompanionGuiTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void signInShowsNameAndDevices();
    void uploadReachesFullProgress();
    void heldBackClickDoesNotRepeatTheCall();
    void updateDownloadPausesResumesAndCompletes();
    void publishedMessageAppears();
    void protectedTextRestores();
    void cleanupTestCase();

private:
    template <typename T>
    T* find(const char* name)
    {
        T* child = m_window->findChild<T*>(QString::fromLatin1(name));
        if (!child)
            qFatal("the window has no %s", name);
        return child;
    }
    void showTab(const char* panelClass);
    // Clicks a button, as the user would, once the window is idle, and
    // waits until it is idle again.
    void click(const char* button);
    // Runs what while the next blocking call waits (from inside its wait).
    void duringNextCall(std::function<void()> what);
    // idle: wait until no blocking call runs (else: show the busy window).
    void screenshot(const QString& name, bool idle = true);
    void verifyNoFreeze();

    VornTest::DevCloudProcess m_cloud;
    std::unique_ptr<VornTest::CloudAdmin> m_admin;
    QTemporaryDir m_work;
    std::unique_ptr<CompanionWindow> m_window;
    std::unique_ptr<RepaintGapRecorder> m_recorder;
    QString m_screenshots;
};

void CompanionGuiTest::initTestCase()
{
    QVERIFY2(m_cloud.start(), qPrintable(m_cloud.output()));
    m_admin = std::make_unique<VornTest::CloudAdmin>(m_cloud.baseUrl());
    // The helper reads its configuration when it is made, by the window.
    qputenv("NUBRA_CONFIG", m_cloud.configPath().toLocal8Bit());
    m_screenshots = qEnvironmentVariable("VORN_COMPANION_SCREENSHOTS");

    CompanionOptions options;
    options.account = QStringLiteral("demo@vorn.example");
    options.packageFolder = m_work.path() + QStringLiteral("/packages");
    m_window = std::make_unique<CompanionWindow>(options);
    m_recorder = std::make_unique<RepaintGapRecorder>(m_window.get(), m_window->busyState());
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
}

void CompanionGuiTest::showTab(const char* panelClass)
{
    auto* tabs = find<QTabWidget>("tabs");
    for (int i = 0; i < tabs->count(); ++i) {
        if (tabs->widget(i)->inherits(panelClass))
            tabs->setCurrentIndex(i);
    }
    QVERIFY(tabs->currentWidget()->inherits(panelClass));
}

void CompanionGuiTest::click(const char* button)
{
    auto* target = find<QPushButton>(button);
    QTRY_VERIFY_WITH_TIMEOUT(target->isEnabled(), kUiTimeoutMs);
    QTest::mouseClick(target, Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(!m_window->busyState()->busy(), kUiTimeoutMs);
}

void CompanionGuiTest::duringNextCall(std::function<void()> what)
{
    auto connection = std::make_shared<QMetaObject::Connection>();
    *connection = connect(m_window->busyState(), &BusyState::activityStarted, this, [connection, what] {
        QObject::disconnect(*connection);
        QTimer::singleShot(0, what);
    });
}

void CompanionGuiTest::screenshot(const QString& name, bool idle)
{
    if (m_screenshots.isEmpty())
        return;
    if (idle)
        QTRY_VERIFY(!m_window->busyState()->busy());
    // The last changes painted and through the X server before it is read
    // (a round trip; screenshot runs only).
    m_window->repaint();
    QGuiApplication::sync();
    const QString path = m_screenshots + QLatin1Char('/') + name + QStringLiteral(".png");
    QCOMPARE(QProcess::execute(QStringLiteral("import"),
                               {QStringLiteral("-window"), QString::number(m_window->winId()), path}),
             0);
}

void CompanionGuiTest::verifyNoFreeze()
{
    for (const RepaintGapRecorder::Call& call : m_recorder->calls())
        QVERIFY2(call.longestGapMs <= kFrozenMs, qPrintable(QStringLiteral("\"%1\": no repaint for %2 ms")
                                                                .arg(call.activity)
                                                                .arg(call.longestGapMs)));
}

void CompanionGuiTest::signInShowsNameAndDevices()
{
    showTab("AccountPanel");
    auto* password = find<QLineEdit>("password");

    // A wrong password is refused with the cloud's reason.
    QTest::keyClicks(password, QStringLiteral("not-the-password"));
    click("signIn");
    QVERIFY2(find<QLabel>("accountStatus")->text().contains(QStringLiteral("wrongCredentials")),
             qPrintable(find<QLabel>("accountStatus")->text()));

    // While the sign-in waits (this call admits user input), its button is
    // disabled: a second click starts nothing.
    int signIns = 0;
    bool enabledWhileBusy = true;
    QObject connections; // ends them when this test returns, also early
    connect(m_window->busyState(), &BusyState::activityStarted, &connections, [&] { ++signIns; });
    duringNextCall([&] {
        enabledWhileBusy = find<QPushButton>("signIn")->isEnabled();
        QTest::mouseClick(find<QPushButton>("signIn"), Qt::LeftButton);
    });
    password->clear();
    QTest::keyClicks(password, QStringLiteral("scan3d!"));
    click("signIn");
    QCOMPARE(signIns, 1);
    QVERIFY(!enabledWhileBusy);

    QCOMPARE(find<QLabel>("userName")->text(), QStringLiteral("Demo User"));
    auto* devices = find<QListWidget>("devices");
    QCOMPARE(devices->count(), 2);
    QVERIFY(devices->item(0)->text().startsWith(QStringLiteral("VS2024000123  VS-200")));
    QVERIFY(devices->item(1)->text().startsWith(QStringLiteral("VS2024000456  VS-300 Pro")));
    screenshot(QStringLiteral("companion-account"));
    verifyNoFreeze();
}

void CompanionGuiTest::uploadReachesFullProgress()
{
    showTab("DiskPanel");
    auto* spaces = find<QListWidget>("spaces");
    QCOMPARE(spaces->count(), 3);
    QVERIFY(spaces->item(0)->text().startsWith(QStringLiteral("Personal (front): 0 B used")));

    // A 6 MB scan, chosen in the file dialog by typing its path.
    const QString path = m_work.path() + QStringLiteral("/scan-0042.vscan");
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QByteArray block(64 * 1024, '\0');
        for (int i = 0; i < 96; ++i) {
            block.fill(char(i));
            QCOMPARE(file.write(block), qint64(block.size()));
        }
    }
    // As a user would: type the path into the active dialog and press Open.
    // (Xvfb has no window manager to activate the dialog; the dialog's
    // completion relies on the name field having the focus.) The dialog
    // lists the folder in the background: Open is pressed once it shows
    // the typed file.
    enum class Step { Activate, Type, Open, Done } step = Step::Activate;
    QTimer dialogWatch;
    connect(&dialogWatch, &QTimer::timeout, this, [&] {
        auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
        auto* name = dialog ? dialog->findChild<QLineEdit*>(QStringLiteral("fileNameEdit")) : nullptr;
        auto* buttons = dialog ? dialog->findChild<QDialogButtonBox*>(QStringLiteral("buttonBox")) : nullptr;
        if (!name || !buttons)
            return;
        QPushButton* open = buttons->button(QDialogButtonBox::Open);
        if (step == Step::Activate) {
            dialog->activateWindow();
            step = Step::Type;
        } else if (step == Step::Type && dialog->isActiveWindow()) {
            name->setFocus();
            QTest::keyClicks(name, path);
            step = Step::Open;
        } else if (step == Step::Open && open->isEnabled() && dialog->selectedFiles() == QStringList{path}) {
            step = Step::Done;
            QTest::mouseClick(open, Qt::LeftButton);
        }
    });
    dialogWatch.start(20);
    QTimer::singleShot(kUiTimeoutMs, this, [] {
        if (QApplication::activeModalWidget())
            QApplication::activeModalWidget()->close();
    });
    click("chooseFile");
    dialogWatch.stop();
    QVERIFY(step == Step::Done);
    QCOMPARE(find<QLabel>("uploadFile")->text(), QStringLiteral("scan-0042.vscan"));

    int highest = 0;
    QObject connections; // ends them when this test returns, also early
    connect(find<QProgressBar>("uploadProgress"), &QProgressBar::valueChanged, &connections,
            [&](int value) { highest = qMax(highest, value); });
    click("upload");
    QCOMPARE(highest, 100);
    QCOMPARE(find<QProgressBar>("uploadProgress")->value(), 100);
    QVERIFY2(find<QLabel>("uploadStatus")->text().startsWith(QStringLiteral("scan-0042.vscan uploaded (6.0 MB")),
             qPrintable(find<QLabel>("uploadStatus")->text()));
    // The spaces were read again after the upload.
    QVERIFY2(spaces->item(0)->text().startsWith(QStringLiteral("Personal (front): 6.0 MB used")),
             qPrintable(spaces->item(0)->text()));
    screenshot(QStringLiteral("companion-disk"));
    verifyNoFreeze();
}

void CompanionGuiTest::heldBackClickDoesNotRepeatTheCall()
{
    // Reading the spaces waits with user input excluded: X input that
    // arrives meanwhile is held back and delivered when the call returns.
    // The cloud is stopped while the call waits, a real click on Refresh is
    // sent, and the cloud goes on only once the X server has delivered it
    // (a property change sent after the click has arrived).
    showTab("DiskPanel");
    auto* refresh = find<QPushButton>("refreshSpaces");
    const QPoint at = refresh->mapToGlobal(refresh->rect().center());
    const QStringList clickRefresh{QStringLiteral("mousemove"), QString::number(at.x()), QString::number(at.y()),
                                   QStringLiteral("click"), QStringLiteral("1")};
    const auto cloud = pid_t(m_cloud.processId());
    int refreshes = 0;
    bool clickSent = false;
    std::unique_ptr<PropertyChangeWatcher> watcher;
    QObject connections; // ends them when this test returns, also early
    connect(m_window->busyState(), &BusyState::activityStarted, &connections, [&] {
        if (refreshes++ > 0)
            return;
        // Still before the helper's call: its request will find the cloud
        // stopped.
        ::kill(cloud, SIGSTOP);
        watcher = std::make_unique<PropertyChangeWatcher>(m_window->winId(), [cloud] { ::kill(cloud, SIGCONT); });
        clickSent = xdotool(QStringList(clickRefresh) << QStringLiteral("set_window") << QStringLiteral("--name")
                                                      << QStringLiteral("Vorn Companion")
                                                      << QString::number(m_window->winId()))
            == 0;
        if (!clickSent)
            ::kill(cloud, SIGCONT);
    });
    click("refreshSpaces");
    QVERIFY2(clickSent, "xdotool failed (Debian package xdotool)");
    // The held-back click arrives while the actions are still disabled.
    QTRY_VERIFY_WITH_TIMEOUT(!m_window->busyState()->busy(), kUiTimeoutMs);
    QCOMPARE(refreshes, 1);
    QCOMPARE(find<QListWidget>("spaces")->count(), 3);

    // The same click on the idle window does start a refresh.
    QCOMPARE(xdotool(clickRefresh), 0);
    QTRY_COMPARE_WITH_TIMEOUT(refreshes, 2, kUiTimeoutMs);
    QTRY_VERIFY_WITH_TIMEOUT(!m_window->busyState()->busy(), kUiTimeoutMs);
    verifyNoFreeze();
}

void CompanionGuiTest::updateDownloadPausesResumesAndCompletes()
{
    showTab("UpdatesPanel");
    click("register");
    QVERIFY2(find<QLabel>("downloadStatus")->text().startsWith(QStringLiteral("Registered VS-200 1.1.0")),
             qPrintable(find<QLabel>("downloadStatus")->text()));
    click("check");
    QVERIFY2(find<QLabel>("available")->text().startsWith(QStringLiteral("VS-200 1.2.0 is available (8.0 MB)")),
             qPrintable(find<QLabel>("available")->text()));

    // Loopback is too fast to pause by hand: the first request for the
    // package is served at 2 MiB/s (the resume is not slowed).
    const QJsonObject package = m_admin->package(QStringLiteral("VS-200"), QStringLiteral("1.2.0"));
    m_admin->armFault(QUrl(package.value(QStringLiteral("url")).toString()).path(),
                      {{QStringLiteral("throttle"), 2 * 1024 * 1024}, {QStringLiteral("times"), 1}});

    // Pause at a fifth, from inside the download's wait, as the user would.
    auto* progress = find<QProgressBar>("downloadProgress");
    bool otherActionsDisabled = false;
    bool pauseClicked = false;
    auto pauser = std::make_unique<QObject>(); // ends the connection when this test returns, also early
    connect(progress, &QProgressBar::valueChanged, pauser.get(), [&](int value) {
        if (value < 20 || pauseClicked)
            return;
        pauseClicked = true;
        otherActionsDisabled = !find<QPushButton>("download")->isEnabled() && !find<QPushButton>("check")->isEnabled();
        QTimer::singleShot(0, this, [this] {
            screenshot(QStringLiteral("companion-updates-busy"), false);
            QTest::mouseClick(find<QPushButton>("pause"), Qt::LeftButton);
        });
    });
    click("download");
    pauser.reset();
    QVERIFY(pauseClicked);
    QVERIFY(otherActionsDisabled);
    QVERIFY2(find<QLabel>("downloadStatus")->text().startsWith(QStringLiteral("Paused")),
             qPrintable(find<QLabel>("downloadStatus")->text()));
    const int pausedAt = progress->value();
    QVERIFY2(pausedAt >= 20 && pausedAt < 100, qPrintable(QString::number(pausedAt)));
    QVERIFY(!find<QPushButton>("pause")->isEnabled());
    screenshot(QStringLiteral("companion-updates-paused"));

    click("onDisk");
    QVERIFY2(find<QLabel>("downloadStatus")->text().startsWith(QStringLiteral("VS-200 1.2.0 is on disk")),
             qPrintable(find<QLabel>("downloadStatus")->text()));

    click("download");
    QCOMPARE(progress->value(), 100);
    QCOMPARE(find<QLabel>("downloadStatus")->text(), QStringLiteral("VS-200 1.2.0 downloaded and verified"));
    const QFileInfo onDisk(m_work.path() + QStringLiteral("/packages/VS-200-1.2.0.vpkg"));
    QCOMPARE(onDisk.size(), qint64(package.value(QStringLiteral("packageSize")).toDouble()));
    verifyNoFreeze();
}

void CompanionGuiTest::publishedMessageAppears()
{
    showTab("LiveStatusPanel");
    click("subscribe");
    QCOMPARE(find<QLabel>("liveStatus")->text(), QStringLiteral("Listening to 2 device topic(s)"));
    QVERIFY(m_admin->publish(QStringLiteral("devices/VS2024000123/status"),
                             {{QStringLiteral("state"), QStringLiteral("scanning")}, {QStringLiteral("progress"), 42}}));
    auto* messages = find<QListWidget>("messages");
    QTRY_COMPARE_WITH_TIMEOUT(messages->count(), 1, kUiTimeoutMs);
    QVERIFY2(messages->item(0)->text().endsWith(
                 QStringLiteral("devices/VS2024000123/status  {\"progress\":42,\"state\":\"scanning\"}")),
             qPrintable(messages->item(0)->text()));
    screenshot(QStringLiteral("companion-live"));
    click("disconnect");
    QCOMPARE(find<QLabel>("liveStatus")->text(), QStringLiteral("Disconnected"));
    verifyNoFreeze();
}

void CompanionGuiTest::protectedTextRestores()
{
    showTab("ProtectPanel");
    const QString text = QStringLiteral("Calibration of VS2024000123: point pitch 0.05 mm, exposure 12");
    QTest::keyClicks(find<QPlainTextEdit>("plainText"), text);
    click("protect");
    const QString protectedText = find<QPlainTextEdit>("protectedText")->toPlainText();
    QVERIFY(!protectedText.isEmpty());
    QVERIFY(!protectedText.contains(QStringLiteral("Calibration")));
    click("restore");
    QCOMPARE(find<QPlainTextEdit>("restoredText")->toPlainText(), text);
    screenshot(QStringLiteral("companion-protect"));
}

void CompanionGuiTest::cleanupTestCase()
{
    if (m_recorder)
        qInfo().noquote() << "Repaint gaps during blocking calls:\n" + m_recorder->report();
    m_recorder.reset();
    m_window.reset();
    m_cloud.stop();
}

QTEST_MAIN(CompanionGuiTest)
#include "CompanionGuiTest.moc"
