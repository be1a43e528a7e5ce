#include "ZVXManualClock.h"
#include "ZVXTemporaryUserDefaults.h"
#include "ZVXWidgetUserInterface.h"
#include "Zuvero.h"
#include "ZuveroDelegate.h"

#include <QAccessible>
#include <QApplication>
#include <QPointer>
#include <QScreen>
#include <QTest>

#include <memory>

using namespace std::chrono_literals;

namespace {

QWidget *banner()
{
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (widget->objectName() == QLatin1String("notificationBanner"))
            return widget;
    }
    return nullptr;
}

bool bannerShown()
{
    QWidget *window = banner();
    return window && window->isVisible();
}

// The banner showing \a text (any, when empty), if any.
QWidget *contentShowing(const QString &text = {})
{
    const QList<QWidget *> contents = banner()
        ? banner()->findChildren<QWidget *>(QStringLiteral("notificationContent"))
        : QList<QWidget *>();
    for (QWidget *content : contents) {
        if (text.isEmpty() ? content->isVisible() && content->y() == 0
                           : content->accessibleDescription() == text)
            return content;
    }
    return nullptr;
}

// The text of the banner fully in its place, empty when none is.
QString textInPlace()
{
    QWidget *content = contentShowing();
    return content ? content->accessibleDescription() : QString();
}

ZuveroChatMessagePtr agentMessage(const QString &text)
{
    ZuveroChatMessagePtr message = ZuveroChatMessage::initWithAgentText(text);
    message->setUserName(QStringLiteral("Mia"));
    return message;
}

QtMessageHandler s_previousHandler = nullptr;

} // namespace

class TestNotificationBanner : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void timing_data();
    void timing();
    void nothingWithoutText();
    void clickOpensTheChat_data();
    void clickOpensTheChat();
    void alongTheTopOfTheScreen();
    void neverTakesTheFocus();

private:
    void advanceTo(int ms);

    std::unique_ptr<ZVXTemporaryUserDefaults> m_defaults;
    std::unique_ptr<ZVXManualClock> m_clock;
    std::shared_ptr<ZuveroDelegate> m_delegate;
    std::unique_ptr<Zuvero> m_zuvero;
    std::unique_ptr<ZVXWidgetUserInterface> m_ui;
    std::unique_ptr<QWidget> m_host;
    int m_chatsShown = 0;
    int m_now = 0;
};

void TestNotificationBanner::initTestCase()
{
    // The offscreen platform has no window opacity and says so at every frame of a fade.
    s_previousHandler = qInstallMessageHandler(
        [](QtMsgType type, const QMessageLogContext &context, const QString &text) {
            if (!text.startsWith(QLatin1String("This plugin does not support")))
                s_previousHandler(type, context, text);
        });
}

void TestNotificationBanner::init()
{
    m_defaults = std::make_unique<ZVXTemporaryUserDefaults>();
    m_clock = std::make_unique<ZVXManualClock>();
    m_now = 0;
    m_chatsShown = 0;
    m_delegate = std::make_shared<ZuveroDelegate>();
    // The host shows the chat itself, so no window opens here: count the requests.
    m_delegate->zuveroDisplayChatViewController = [this](Zuvero *) { ++m_chatsShown; };
    m_zuvero.reset(Zuvero::initWithApiSecret(QStringLiteral("0a1b2c3d4e5f60718293a4b5c6d7e8f9"),
                                             QStringLiteral("127.0.0.1:9"), m_delegate));
    m_ui = std::make_unique<ZVXWidgetUserInterface>();
    m_host = std::make_unique<QWidget>();
    m_host->setWindowTitle(QStringLiteral("Host"));
    m_host->resize(480, 360);
    m_host->show();
    m_host->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_host.get()));
}

void TestNotificationBanner::cleanup()
{
    m_ui.reset();
    QVERIFY(!banner());
    m_host.reset();
    m_zuvero.reset();
    m_clock.reset();
    m_defaults.reset();
}

void TestNotificationBanner::advanceTo(int ms)
{
    m_clock->advance(std::chrono::milliseconds(ms - m_now));
    m_now = ms;
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void TestNotificationBanner::timing_data()
{
    // Messages "1", "2"... arrive at the times given; at \a at, which is in place, if any.
    QTest::addColumn<QList<int>>("arrivals");
    QTest::addColumn<int>("at");
    QTest::addColumn<QString>("inPlace");
    QTest::addColumn<bool>("shown");

    // Slides in over 0.35 s after 0.1 s, stays 2 s, slides away over 0.35 s.
    QTest::newRow("above the screen at first") << QList<int>{0} << 99 << QString() << true;
    QTest::newRow("sliding in") << QList<int>{0} << 300 << QString() << true;
    QTest::newRow("in place") << QList<int>{0} << 450 << QStringLiteral("1") << true;
    QTest::newRow("stays its duration") << QList<int>{0} << 2449 << QStringLiteral("1") << true;
    QTest::newRow("then slides away") << QList<int>{0} << 2470 << QString() << true;
    QTest::newRow("hidden once away") << QList<int>{0} << 2800 << QString() << false;

    // A newer message takes the place at once and stays its full time from its arrival.
    QTest::newRow("replaced at once") << QList<int>{0, 1500} << 1500 << QStringLiteral("2") << true;
    QTest::newRow("replacement stays from its arrival")
        << QList<int>{0, 1500} << 3499 << QStringLiteral("2") << true;
    QTest::newRow("replacement hidden") << QList<int>{0, 1500} << 3850 << QString() << false;
    QTest::newRow("replaced while sliding in")
        << QList<int>{0, 200} << 200 << QStringLiteral("2") << true;
    QTest::newRow("replaced while sliding in, stays from its arrival")
        << QList<int>{0, 200} << 2199 << QStringLiteral("2") << true;

    // One arriving while the last slides away slides in anew, and the old timer is spent.
    QTest::newRow("after a dismissal, in place")
        << QList<int>{0, 2500} << 2950 << QStringLiteral("2") << true;
    QTest::newRow("after a dismissal, stays")
        << QList<int>{0, 2500} << 4949 << QStringLiteral("2") << true;
    QTest::newRow("after a dismissal, hidden") << QList<int>{0, 2500} << 5300 << QString() << false;
}

void TestNotificationBanner::timing()
{
    QFETCH(QList<int>, arrivals);
    QFETCH(int, at);
    QFETCH(QString, inPlace);
    QFETCH(bool, shown);

    for (qsizetype i = 0; i < arrivals.size(); ++i) {
        advanceTo(arrivals[i]);
        m_ui->showBanner(agentMessage(QString::number(i + 1)), m_zuvero.get());
    }
    advanceTo(at);
    QCOMPARE(textInPlace(), inPlace);
    QCOMPARE(bannerShown(), shown);
    QCOMPARE(m_chatsShown, 0);
}

void TestNotificationBanner::nothingWithoutText()
{
    m_ui->showBanner(agentMessage(QString()), m_zuvero.get());
    m_ui->showBanner(ZuveroChatMessage::initWithAgentText(std::nullopt), m_zuvero.get());
    advanceTo(1000);
    QVERIFY(!bannerShown());
}

void TestNotificationBanner::clickOpensTheChat_data()
{
    QTest::addColumn<int>("clickAt");
    QTest::newRow("while sliding in") << 300;
    QTest::newRow("in place") << 1000;
}

void TestNotificationBanner::clickOpensTheChat()
{
    QFETCH(int, clickAt);
    m_ui->showBanner(agentMessage(QStringLiteral("Your order has shipped")), m_zuvero.get());
    advanceTo(clickAt);
    QPointer<QWidget> content = contentShowing(QStringLiteral("Your order has shipped"));
    QVERIFY(content && content->isVisible());
    const QPoint visible(content->width() / 2, content->height() - 4);
    QTest::mouseClick(content, Qt::LeftButton, {}, visible);
    QCOMPARE(m_chatsShown, 1);

    // It slides away; a second click on what is left of it opens nothing more.
    advanceTo(clickAt + 100);
    QCOMPARE(textInPlace(), QString());
    QVERIFY(content);
    QTest::mouseClick(content, Qt::LeftButton, {}, visible);
    QCOMPARE(m_chatsShown, 1);
    advanceTo(clickAt + 350);
    QVERIFY(!content);
    QVERIFY(!bannerShown());
    // The stay the banner had left ends harmlessly.
    advanceTo(clickAt + 5000);
    QVERIFY(!bannerShown());
    QCOMPARE(m_chatsShown, 1);
}

void TestNotificationBanner::alongTheTopOfTheScreen()
{
    m_ui->showBanner(agentMessage(QStringLiteral("Hi")), m_zuvero.get());
    // While it slides in, the window covers only what the banner does, not a blank strip.
    advanceTo(300);
    QWidget *sliding = contentShowing(QStringLiteral("Hi"));
    QVERIFY(sliding && sliding->y() < 0);
    QCOMPARE(banner()->height(), sliding->geometry().bottom() + 1);

    advanceTo(500);
    QWidget *window = banner();
    QVERIFY(window && window->isVisible());
    const QRect screen = m_host->screen()->geometry();
    QCOMPARE(window->geometry().topLeft(), screen.topLeft());
    QCOMPARE(window->width(), screen.width());
    QWidget *content = contentShowing(QStringLiteral("Hi"));
    QCOMPARE(content->geometry(), window->rect());
    const int shortHeight = window->height();
    QVERIFY(shortHeight > 0 && shortHeight < screen.height() / 4);

    // Who and what, for assistive technology.
    QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(window);
    QCOMPARE(accessible->text(QAccessible::Name), QStringLiteral("Mia"));
    QCOMPARE(accessible->text(QAccessible::Description), QStringLiteral("Hi"));

    // A long text grows the banner by a few lines at most, never over the screen.
    const QString longText = QStringLiteral("A long answer that goes on. ").repeated(400);
    m_ui->showBanner(agentMessage(longText), m_zuvero.get());
    const int lineSpacing = QFontMetrics(contentShowing(longText)->font()).lineSpacing();
    QVERIFY(window->height() > shortHeight);
    QVERIFY2(window->height() <= shortHeight + 2 * lineSpacing,
             qPrintable(QString::number(window->height())));
    QCOMPARE(window->width(), screen.width());
}

void TestNotificationBanner::neverTakesTheFocus()
{
    auto *field = new QWidget(m_host.get());
    field->setFocusPolicy(Qt::StrongFocus);
    field->show();
    field->setFocus();
    QCOMPARE(QApplication::focusWidget(), field);

    // Sliding in, replaced, in place.
    for (int at : {0, 200, 500, 1500}) {
        advanceTo(at);
        m_ui->showBanner(agentMessage(QStringLiteral("Hello %1").arg(at)), m_zuvero.get());
    }
    advanceTo(1600);
    QWidget *window = banner();
    QVERIFY(window && window->isVisible());
    QVERIFY(window->windowFlags().testFlag(Qt::WindowDoesNotAcceptFocus));
    QVERIFY(window->windowFlags().testFlag(Qt::WindowStaysOnTopHint));
    QVERIFY(window->testAttribute(Qt::WA_ShowWithoutActivating));
    QCoreApplication::processEvents();
    QCOMPARE(QApplication::activeWindow(), m_host.get());
    QCOMPARE(QApplication::focusWidget(), field);
}

QTEST_MAIN(TestNotificationBanner)
#include "tst_notificationbanner.moc"
