#pragma once

#include <QMainWindow>

class DemoBadgeButton;
class DemoHost;
class QAction;
class QActionGroup;
class QLabel;
class QMenu;
class QPushButton;

/*
    A pretend shop: three lamps, a basket, and the "Contact support"
    button with the unread count on it. The menus switch the user and the
    language.
*/
class DemoShopWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit DemoShopWindow(DemoHost *host, QWidget *parent = nullptr);

    DemoBadgeButton *contactButton() const { return m_contact; }
    //! Asks for another identity in a dialog and switches to it.
    void askForUser();

protected:
    void changeEvent(QEvent *event) override;

private:
    struct Product
    {
        const char *name;
        double price;
        QColor shade;
        QLabel *title = nullptr;
        QLabel *priceLabel = nullptr;
        QPushButton *add = nullptr;
    };

    QWidget *makeCard(Product &product);
    void retranslate();
    void updateStatus();

    DemoHost *m_host;
    QList<Product> m_products;
    int m_basket = 0;
    QLabel *m_headline = nullptr;
    QLabel *m_tagline = nullptr;
    DemoBadgeButton *m_contact = nullptr;
    QLabel *m_status = nullptr;
    QMenu *m_accountMenu = nullptr;
    QMenu *m_languageMenu = nullptr;
    QMenu *m_helpMenu = nullptr;
    QAction *m_switchUser = nullptr;
    QAction *m_contactAction = nullptr;
    QAction *m_quit = nullptr;
    QActionGroup *m_languages = nullptr;
};
