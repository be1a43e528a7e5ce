#include "ZVXAttributedLabel.h"

#include <QApplication>
#include <QDesktopServices>
#include <QLineEdit>
#include <QSignalSpy>
#include <QTest>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

const QString Message = u"Write to help@example.com or visit example.com/faq today."_s;

// Receives what QDesktopServices would hand to the desktop.
class UrlHandler : public QObject
{
    Q_OBJECT

public:
    QList<QUrl> opened;

public Q_SLOTS:
    void open(const QUrl &url) { opened.append(url); }
};

} // namespace

class TestAttributedLabel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void clickOpensTheLink();
    void pressAndReleaseMustMeetOnOneLink();
    void pointerOverLinks();
    void keyboardReachesEveryLink();
    void accessibleNameAndHeight();

private:
    // The middle of \a prefix's end and \a word's in the label's first line, measured apart.
    QPoint pointAfter(const ZVXAttributedLabel &label, const QString &prefix, const QString &word);

    UrlHandler m_handler;
    std::unique_ptr<QWidget> m_window;
    ZVXAttributedLabel *m_label = nullptr;
    QLineEdit *m_before = nullptr;
    QLineEdit *m_after = nullptr;
};

void TestAttributedLabel::init()
{
    for (const QString &scheme : {u"https"_s, u"mailto"_s, u"tel"_s})
        QDesktopServices::setUrlHandler(scheme, &m_handler, "open");
    m_handler.opened.clear();
    m_window = std::make_unique<QWidget>();
    auto *layout = new QVBoxLayout(m_window.get());
    m_before = new QLineEdit;
    m_label = new ZVXAttributedLabel(Message);
    m_after = new QLineEdit;
    layout->addWidget(m_before);
    layout->addWidget(m_label);
    layout->addWidget(m_after);
    m_window->resize(700, 200);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
}

void TestAttributedLabel::cleanup()
{
    m_window.reset();
    for (const QString &scheme : {u"https"_s, u"mailto"_s, u"tel"_s})
        QDesktopServices::unsetUrlHandler(scheme);
}

QPoint TestAttributedLabel::pointAfter(const ZVXAttributedLabel &label, const QString &prefix,
                                       const QString &word)
{
    const QFontMetricsF metrics(label.font());
    const qreal x = metrics.horizontalAdvance(prefix) + metrics.horizontalAdvance(word) / 2;
    return label.contentsRect().topLeft() + QPoint(int(x), int(metrics.height() / 2));
}

void TestAttributedLabel::clickOpensTheLink()
{
    QSignalSpy activated(m_label, &ZVXAttributedLabel::linkActivated);
    QTest::mouseClick(m_label, Qt::LeftButton, {},
                      pointAfter(*m_label, u"Write to "_s, u"help@example.com"_s));
    QCOMPARE(activated.size(), 1);
    QCOMPARE(activated[0][0].toUrl(), QUrl(u"mailto:help@example.com"_s));
    QCOMPARE(m_handler.opened, QList<QUrl>{QUrl(u"mailto:help@example.com"_s)});

    QTest::mouseClick(
        m_label, Qt::LeftButton, {},
        pointAfter(*m_label, u"Write to help@example.com or visit "_s, u"example.com/faq"_s));
    QCOMPARE(activated.size(), 2);
    QCOMPARE(activated[1][0].toUrl(), QUrl(u"https://example.com/faq"_s));

    // Text beside the links opens nothing.
    QTest::mouseClick(m_label, Qt::LeftButton, {}, pointAfter(*m_label, {}, u"Write"_s));
    QTest::mouseClick(m_label, Qt::RightButton, {},
                      pointAfter(*m_label, u"Write to "_s, u"help@example.com"_s));
    QCOMPARE(activated.size(), 2);
    QCOMPARE(m_handler.opened.size(), 2);
}

void TestAttributedLabel::pressAndReleaseMustMeetOnOneLink()
{
    QSignalSpy activated(m_label, &ZVXAttributedLabel::linkActivated);
    const QPoint mail = pointAfter(*m_label, u"Write to "_s, u"help@example.com"_s);
    const QPoint web
        = pointAfter(*m_label, u"Write to help@example.com or visit "_s, u"example.com/faq"_s);
    QTest::mousePress(m_label, Qt::LeftButton, {}, mail);
    QTest::mouseRelease(m_label, Qt::LeftButton, {}, web);
    QTest::mousePress(m_label, Qt::LeftButton, {}, mail);
    QTest::mouseRelease(m_label, Qt::LeftButton, {}, pointAfter(*m_label, {}, u"Write"_s));
    QCOMPARE(activated.size(), 0);
}

void TestAttributedLabel::pointerOverLinks()
{
    QTest::mouseMove(m_label, pointAfter(*m_label, u"Write to "_s, u"help@example.com"_s));
    QTRY_COMPARE(m_label->cursor().shape(), Qt::PointingHandCursor);
    QTest::mouseMove(m_label, pointAfter(*m_label, {}, u"Write"_s));
    QTRY_COMPARE(m_label->cursor().shape(), Qt::ArrowCursor);
}

void TestAttributedLabel::keyboardReachesEveryLink()
{
    QSignalSpy activated(m_label, &ZVXAttributedLabel::linkActivated);
    m_before->setFocus();
    QTRY_VERIFY(m_before->hasFocus());

    QTest::keyClick(m_before, Qt::Key_Tab);
    QVERIFY(m_label->hasFocus());
    QCOMPARE(m_label->focusedLink(), std::optional<int>(0));
    QTest::keyClick(m_label, Qt::Key_Tab);
    QCOMPARE(m_label->focusedLink(), std::optional<int>(1));
    QTest::keyClick(m_label, Qt::Key_Tab);
    QVERIFY(m_after->hasFocus());
    QCOMPARE(m_label->focusedLink(), std::nullopt);

    // Back in from below lands on the last link; Enter opens it.
    QTest::keyClick(m_after, Qt::Key_Backtab);
    QVERIFY(m_label->hasFocus());
    QCOMPARE(m_label->focusedLink(), std::optional<int>(1));
    QTest::keyClick(m_label, Qt::Key_Return);
    QTest::keyClick(m_label, Qt::Key_Backtab);
    QCOMPARE(m_label->focusedLink(), std::optional<int>(0));
    QTest::keyClick(m_label, Qt::Key_Space);
    QCOMPARE(activated.size(), 2);
    QCOMPARE(activated[0][0].toUrl(), QUrl(u"https://example.com/faq"_s));
    QCOMPARE(activated[1][0].toUrl(), QUrl(u"mailto:help@example.com"_s));
    QCOMPARE(m_handler.opened.size(), 2);

    // Links cut off by the line limit cannot be reached, and text without links is skipped.
    m_label->setMaximumLineCount(1);
    m_label->setFixedWidth(QFontMetrics(m_label->font()).horizontalAdvance(u"Write to help@"_s));
    m_before->setFocus();
    QTest::keyClick(m_before, Qt::Key_Tab);
    QCOMPARE(m_label->focusedLink(), std::optional<int>(0));
    QTest::keyClick(m_label, Qt::Key_Tab);
    QVERIFY(m_after->hasFocus());
    m_label->setText(u"No links here."_s);
    m_before->setFocus();
    QTest::keyClick(m_before, Qt::Key_Tab);
    QVERIFY(m_after->hasFocus());
}

void TestAttributedLabel::accessibleNameAndHeight()
{
    QCOMPARE(m_label->accessibleName(), Message);
    m_label->setText(u"Other words, example.org"_s);
    QCOMPARE(m_label->accessibleName(), u"Other words, example.org"_s);

    m_label->setText(Message + u" "_s + Message + u" "_s + Message);
    const int lineHeight = m_label->fontMetrics().height();
    QVERIFY(m_label->heightForWidth(2000) < 2 * lineHeight);
    QVERIFY(m_label->heightForWidth(200) > 3 * lineHeight);
    m_label->setMaximumLineCount(2);
    QVERIFY(m_label->heightForWidth(200) < 3 * lineHeight);
}

QTEST_MAIN(TestAttributedLabel)
#include "tst_attributedlabel.moc"
