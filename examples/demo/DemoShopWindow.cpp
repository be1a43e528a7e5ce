#include "DemoShopWindow.h"

#include "DemoArtwork.h"
#include "DemoBadgeButton.h"
#include "DemoHost.h"
#include "DemoLanguage.h"

#include <Zuvero/Zuvero.h>

#include <QActionGroup>
#include <QApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QEvent>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QPushButton>
#include <QStatusBar>
#include <QVBoxLayout>

DemoShopWindow::DemoShopWindow(DemoHost *host, QWidget *parent)
    : QMainWindow(parent)
    , m_host(host)
{
    setObjectName(QStringLiteral("shopWindow"));
    m_products = {
        {QT_TR_NOOP("Amber desk lamp"), 49.0, QColor(0xd9, 0x8c, 0x2b)},
        {QT_TR_NOOP("Sage reading lamp"), 64.5, QColor(0x7d, 0x9a, 0x78)},
        {QT_TR_NOOP("Indigo bedside lamp"), 39.9, QColor(0x4b, 0x5c, 0xa8)},
    };

    auto *central = new QWidget;
    auto *column = new QVBoxLayout(central);
    column->setContentsMargins(24, 16, 24, 16);
    column->setSpacing(12);

    auto *top = new QHBoxLayout;
    auto *titles = new QVBoxLayout;
    m_headline = new QLabel;
    m_headline->setObjectName(QStringLiteral("headline"));
    QFont headlineFont = m_headline->font();
    headlineFont.setPointSizeF(headlineFont.pointSizeF() * 1.8);
    headlineFont.setBold(true);
    m_headline->setFont(headlineFont);
    m_tagline = new QLabel;
    m_tagline->setWordWrap(true);
    titles->addWidget(m_headline);
    titles->addWidget(m_tagline);
    top->addLayout(titles, 1);
    m_contact = new DemoBadgeButton;
    connect(m_contact, &QPushButton::clicked, host, &DemoHost::openChat);
    top->addWidget(m_contact, 0, Qt::AlignTop);
    column->addLayout(top);

    auto *cards = new QHBoxLayout;
    cards->setSpacing(16);
    for (Product &product : m_products)
        cards->addWidget(makeCard(product));
    column->addLayout(cards, 1);

    setCentralWidget(central);
    m_status = new QLabel;
    statusBar()->addWidget(m_status, 1);

    m_accountMenu = menuBar()->addMenu(QString());
    m_switchUser = m_accountMenu->addAction(QString(), this, &DemoShopWindow::askForUser);
    m_accountMenu->addSeparator();
    m_quit = m_accountMenu->addAction(QString(), qApp, &QApplication::quit);
    m_quit->setShortcut(QKeySequence::Quit);

    m_languageMenu = menuBar()->addMenu(QString());
    m_languages = new QActionGroup(this);
    for (const QString &code : DemoLanguage::codes()) {
        // Each language named in itself, so that whoever reads it finds theirs.
        QAction *action = m_languageMenu->addAction(DemoLanguage::nativeName(code));
        action->setCheckable(true);
        action->setData(code);
        action->setChecked(code == DemoLanguage::current());
        m_languages->addAction(action);
    }
    connect(m_languages, &QActionGroup::triggered, this,
            [](QAction *action) { DemoLanguage::apply(action->data().toString()); });

    m_helpMenu = menuBar()->addMenu(QString());
    m_contactAction = m_helpMenu->addAction(QString(), host, &DemoHost::openChat);
    m_contactAction->setShortcut(QKeySequence(Qt::Key_F1));

    connect(host, &DemoHost::unreadCountChanged, m_contact, &DemoBadgeButton::setCount);
    connect(host, &DemoHost::userChanged, this, [this] {
        m_contact->setCount(0);
        updateStatus();
    });
    retranslate();
}

QWidget *DemoShopWindow::makeCard(Product &product)
{
    auto *card = new QFrame;
    card->setFrameShape(QFrame::StyledPanel);
    auto *layout = new QVBoxLayout(card);
    auto *picture = new QLabel;
    picture->setPixmap(QPixmap::fromImage(demoLampPicture(product.shade, QSize(200, 160))));
    picture->setAlignment(Qt::AlignCenter);
    product.title = new QLabel;
    QFont bold = product.title->font();
    bold.setBold(true);
    product.title->setFont(bold);
    product.priceLabel = new QLabel;
    product.add = new QPushButton;
    connect(product.add, &QPushButton::clicked, this, [this] {
        ++m_basket;
        updateStatus();
    });
    layout->addWidget(picture);
    layout->addWidget(product.title);
    layout->addWidget(product.priceLabel);
    layout->addStretch();
    layout->addWidget(product.add);
    return card;
}

void DemoShopWindow::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::LanguageChange)
        retranslate();
    QMainWindow::changeEvent(event);
}

void DemoShopWindow::retranslate()
{
    setWindowTitle(tr("Lumen & Co. — Lamps"));
    m_headline->setText(tr("Lamps for long evenings"));
    m_tagline->setText(tr("Made by hand in small batches. Questions about an order? Our team "
                          "answers in the chat."));
    m_contact->setTitle(tr("Contact support"));
    m_contact->setToolTip(tr("Chat with the Lumen & Co. team (F1)"));
    for (Product &product : m_products) {
        product.title->setText(tr(product.name));
        // Prices in the reader's own way of writing them.
        product.priceLabel->setText(QLocale().toCurrencyString(product.price, QStringLiteral("€")));
        product.add->setText(tr("Add to basket"));
        product.add->setAccessibleName(tr("Add %1 to basket").arg(tr(product.name)));
    }
    m_accountMenu->setTitle(tr("&Account"));
    m_switchUser->setText(tr("Switch &User…"));
    m_quit->setText(tr("&Quit"));
    m_languageMenu->setTitle(tr("&Language"));
    m_helpMenu->setTitle(tr("&Help"));
    m_contactAction->setText(tr("&Contact Support"));
    for (QAction *action : m_languages->actions())
        action->setChecked(action->data().toString() == DemoLanguage::current());
    updateStatus();
}

void DemoShopWindow::updateStatus()
{
    const Zuvero *zuvero = m_host->zuvero();
    const QString user
        = zuvero->userName().value_or(zuvero->userIdentifier().value_or(tr("a guest")));
    m_status->setText(
        tr("Signed in as %1 · %n item(s) in the basket", nullptr, m_basket).arg(user));
}

void DemoShopWindow::askForUser()
{
    QDialog dialog(this);
    dialog.setWindowTitle(tr("Switch User"));
    auto *form = new QFormLayout(&dialog);
    auto *identifier = new QLineEdit(m_host->zuvero()->userIdentifier().value_or(QString()));
    identifier->setObjectName(QStringLiteral("userIdentifierField"));
    auto *name = new QLineEdit(m_host->zuvero()->userName().value_or(QString()));
    name->setObjectName(QStringLiteral("userNameField"));
    form->addRow(tr("User &ID:"), identifier);
    form->addRow(tr("&Name:"), name);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    form->addRow(buttons);
    connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    const auto check = [&] {
        buttons->button(QDialogButtonBox::Ok)->setEnabled(!identifier->text().trimmed().isEmpty());
    };
    connect(identifier, &QLineEdit::textChanged, &dialog, check);
    check();
    if (dialog.exec() != QDialog::Accepted)
        return;
    m_host->switchUser(identifier->text().trimmed(), name->text().trimmed());
}
