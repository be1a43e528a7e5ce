// The chat screen as assistive technology and the keyboard reach it: every control in the
// accessible tree of the open screen, its viewers and the attachment menu has a name, and a
// conversation can be read, answered and browsed without a pointer.

#include "AttachmentsState.h"
#include "ZVXDevServerSuite.h"
#include "ZVXManualClock.h"
#include "ZVXTemporaryUserDefaults.h"
#include "Zuvero.h"
#include "ZuveroChatAttachment.h"
#include "ZuveroChatViewController.h"
#include "ZuveroChatViewItem.h"
#include "ZuveroConnection.h"
#include "ZuveroImage.h"
#include "ZuveroNavigationController.h"

#include <QAbstractItemView>
#include <QAccessible>
#include <QApplication>
#include <QMenu>
#include <QMetaEnum>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// Roles a user acts on or reads, which a screen reader announces by name.
bool needsName(QAccessible::Role role)
{
    switch (role) {
    case QAccessible::PushButton:
    case QAccessible::CheckBox:
    case QAccessible::RadioButton:
    case QAccessible::ComboBox:
    case QAccessible::EditableText:
    case QAccessible::List:
    case QAccessible::ListItem:
    case QAccessible::Link:
    case QAccessible::MenuItem:
    case QAccessible::Slider:
    case QAccessible::SpinBox:
    case QAccessible::ButtonMenu:
    case QAccessible::ButtonDropDown:
    case QAccessible::Graphic:
    case QAccessible::Window:
    case QAccessible::Dialog:
    case QAccessible::PopupMenu:
        return true;
    default:
        return false;
    }
}

QString describe(QAccessibleInterface *node)
{
    const char *role = QMetaEnum::fromType<QAccessible::Role>().valueToKey(node->role());
    QObject *object = node->object();
    return u"%1 %2 \"%3\""_s.arg(QLatin1String(role ? role : "?"),
                                 object ? QLatin1String(object->metaObject()->className()) + u'#'
                                         + object->objectName()
                                        : u"(item)"_s,
                                 node->text(QAccessible::Name));
}

// The visible nodes under \a node that need a name and have none, and how many were visited.
void walk(QAccessibleInterface *node, QStringList *unnamed, int *visited)
{
    if (!node || !node->isValid() || node->state().invisible)
        return;
    ++*visited;
    if (needsName(node->role()) && node->text(QAccessible::Name).trimmed().isEmpty())
        unnamed->append(describe(node));
    for (int i = 0; i < node->childCount(); ++i)
        walk(node->child(i), unnamed, visited);
}

QStringList unnamedControls(QWidget *window, int *visited)
{
    QStringList unnamed;
    *visited = 0;
    walk(QAccessible::queryAccessibleInterface(window), &unnamed, visited);
    return unnamed;
}

} // namespace

class TestAccessibility : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void everyControlIsNamed();
    void chatIsUsableFromTheKeyboardAlone();

private:
    //! The chat of a user with a text, a picture and a place from them, open and shown.
    ZuveroNavigationController *openConversation(const QString &user);
    QModelIndex lastRowOfKind(QLatin1String kind) const;

    ZVXDevServerSuite m_suite;
    std::unique_ptr<ZVXTemporaryUserDefaults> m_defaults;
    std::unique_ptr<ZVXManualClock> m_clock;
    std::unique_ptr<Zuvero> m_zuvero;
    std::unique_ptr<QWidget> m_window;
    QAbstractItemView *m_list = nullptr;
};

void TestAccessibility::initTestCase()
{
    QVERIFY(m_suite.start());
    AttachmentsState::setUsageDescriptions(
        {{u"NSPhotoLibraryUsageDescription"_s, u"Pictures"_s},
         {u"NSLocationWhenInUseUsageDescription"_s, u"Places"_s}});
}

void TestAccessibility::init()
{
    m_defaults = std::make_unique<ZVXTemporaryUserDefaults>();
    m_clock = std::make_unique<ZVXManualClock>(QDateTime::currentDateTimeUtc());
    QVERIFY(m_suite.reset());
}

void TestAccessibility::cleanup()
{
    m_window.reset();
    m_zuvero.reset();
    m_clock.reset();
    m_defaults.reset();
}

ZuveroNavigationController *TestAccessibility::openConversation(const QString &user)
{
    m_zuvero = m_suite.facade(user);
    if (!ZVXDevServerSuite::registered(m_zuvero.get()))
        return nullptr;
    QImage picture(120, 90, QImage::Format_RGB32);
    picture.fill(QColor(0xd9, 0x8c, 0x2b));
    const ZuveroChatMessageList messages{
        ZuveroChatMessage::initWithText(u"Where is my parcel?"_s),
        ZuveroChatMessage::initWithText(
            u"This one"_s,
            ZuveroChatAttachment::initWithImage(ZuveroImage::initWithImage(picture))),
        ZuveroChatMessage::initWithLocationDictionary(
            {{u"lat"_s, 45.7578}, {u"lng"_s, 4.832}, {u"d"_s, 500.0}}),
    };
    int sent = 0;
    for (const auto &message : messages)
        m_zuvero->connection()->sendChatMessage(
            message, [&sent](bool success, const ZuveroError &) { sent += success; });
    if (!QTest::qWaitFor([&] { return sent == int(messages.size()); }, 10000))
        return nullptr;

    m_window.reset(m_zuvero->chatViewController());
    m_window->resize(480, 720);
    m_window->show();
    m_window->activateWindow();
    if (!QTest::qWaitForWindowActive(m_window.get()))
        return nullptr;
    m_list = m_window->findChild<QAbstractItemView *>(u"messages_list"_s);
    const bool loaded = QTest::qWaitFor(
        [this] {
            return lastRowOfKind(ZuveroChatViewItemKindUserMessageLocation).isValid()
                && lastRowOfKind(ZuveroChatViewItemKindUserMessageAttachment).isValid();
        },
        10000);
    return loaded ? qobject_cast<ZuveroNavigationController *>(m_window.get()) : nullptr;
}

QModelIndex TestAccessibility::lastRowOfKind(QLatin1String kind) const
{
    const QAbstractItemModel *model = m_list ? m_list->model() : nullptr;
    if (!model)
        return {};
    const int role = model->roleNames().key("kind");
    for (int row = model->rowCount() - 1; row >= 0; --row) {
        if (model->index(row, 0).data(role).toString() == kind)
            return model->index(row, 0);
    }
    return {};
}

void TestAccessibility::everyControlIsNamed()
{
    ZuveroNavigationController *navigation = openConversation(u"named"_s);
    QVERIFY(navigation);
    int visited = 0;
    QStringList unnamed = unnamedControls(navigation, &visited);
    QVERIFY2(unnamed.isEmpty(), qPrintable(unnamed.join(u'\n')));
    // The walk saw the list's rows, not just the frame around them.
    QVERIFY(visited > 10);

    // Each viewer, opened from its bubble, and the way back.
    for (QLatin1String kind :
         {ZuveroChatViewItemKindUserMessageAttachment, ZuveroChatViewItemKindUserMessageLocation}) {
        m_list->setFocus();
        m_list->setCurrentIndex(lastRowOfKind(kind));
        QTest::keyClick(m_list, Qt::Key_Return);
        QTRY_VERIFY(navigation->topViewController() != navigation->rootViewController());
        unnamed = unnamedControls(navigation, &visited);
        QVERIFY2(unnamed.isEmpty(), qPrintable(kind + u":\n"_s + unnamed.join(u'\n')));
        navigation->popViewController();
    }

    // The attachment menu.
    auto *attach = navigation->findChild<QWidget *>(u"attachmentButton"_s);
    attach->setFocus();
    QTest::keyClick(attach, Qt::Key_Space);
    QMenu *sheet = nullptr;
    QTRY_VERIFY((sheet = qobject_cast<QMenu *>(QApplication::activePopupWidget())));
    unnamed = unnamedControls(sheet, &visited);
    QVERIFY2(unnamed.isEmpty(), qPrintable(unnamed.join(u'\n')));
    QTest::keyClick(sheet, Qt::Key_Escape);
    QTRY_VERIFY(!QApplication::activePopupWidget());
}

void TestAccessibility::chatIsUsableFromTheKeyboardAlone()
{
    ZuveroNavigationController *navigation = openConversation(u"keyboard"_s);
    QVERIFY(navigation);
    QWidget *field = navigation->findChild<QWidget *>(u"textView"_s);
    field->setFocus();
    QTest::keyClicks(field, u"Thanks"_s);

    // Tab goes round every control, and comes back to the field.
    QSet<QString> reached;
    for (int i = 0; i < 12 && !(i > 0 && QApplication::focusWidget() == field); ++i) {
        reached.insert(QApplication::focusWidget()->objectName());
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    }
    QCOMPARE(QApplication::focusWidget(), field);
    for (const QString &name : {u"messages_list"_s, u"textView"_s, u"sendButton"_s,
                                u"attachmentButton"_s, u"doneButton"_s})
        QVERIFY2(reached.contains(name),
                 qPrintable(name + u" not in "_s + reached.values().join(u' ')));

    // In the list, the arrows move between messages and Enter opens the picture; Alt+Left
    // comes back, and the list keeps its place.
    m_list->setFocus();
    m_list->setCurrentIndex(lastRowOfKind(ZuveroChatViewItemKindUserMessageLocation));
    const int location = m_list->currentIndex().row();
    const QModelIndex picture = lastRowOfKind(ZuveroChatViewItemKindUserMessageAttachment);
    while (m_list->currentIndex().row() > picture.row())
        QTest::keyClick(m_list, Qt::Key_Up);
    QCOMPARE(m_list->currentIndex(), picture);
    QVERIFY(location > picture.row());
    QTest::keyClick(m_list, Qt::Key_Return);
    QTRY_VERIFY(navigation->topViewController()->inherits("ZuveroChatAttachmentViewController"));
    QTest::keyClick(navigation->topViewController(), Qt::Key_Left, Qt::AltModifier);
    QTRY_COMPARE(navigation->topViewController(), navigation->rootViewController());

    // The text typed before is still there, and Enter sends it.
    field->setFocus();
    QTest::keyClick(field, Qt::Key_Return);
    m_clock->advance(std::chrono::milliseconds(20));
    QTRY_VERIFY(
        lastRowOfKind(ZuveroChatViewItemKindUserMessage).data().toString().contains(u"Thanks"_s));

    // Ctrl+W closes the chat, as Done does.
    QPointer<QWidget> window = navigation;
    QTest::keyClick(field, Qt::Key_W, Qt::ControlModifier);
    QTRY_VERIFY(!window || !window->isVisible());
}

QTEST_MAIN(TestAccessibility)
#include "tst_accessibility.moc"
