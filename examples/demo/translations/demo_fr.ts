<?xml version='1.0' encoding='utf-8'?>
<TS version="2.1" language="fr">
<context>
    <name>DemoBadgeButton</name>
    <message numerus="yes">
        <source>%1, %n unread</source>
        <translation>
            <numerusform>%1, %n non lu</numerusform>
            <numerusform>%1, %n non lus</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>DemoShopWindow</name>
    <message>
        <source>Amber desk lamp</source>
        <translation>Lampe de bureau ambre</translation>
    </message>
    <message>
        <source>Sage reading lamp</source>
        <translation>Liseuse vert sauge</translation>
    </message>
    <message>
        <source>Indigo bedside lamp</source>
        <translation>Lampe de chevet indigo</translation>
    </message>
    <message>
        <source>Lumen &amp; Co. — Lamps</source>
        <translation>Lumen &amp; Co. — Luminaires</translation>
    </message>
    <message>
        <source>Lamps for long evenings</source>
        <translation>Des lampes pour les longues soirées</translation>
    </message>
    <message>
        <source>Made by hand in small batches. Questions about an order? Our team answers in the chat.</source>
        <translation>Fabriquées à la main en petites séries. Une question sur une commande ? Notre équipe vous répond dans la messagerie.</translation>
    </message>
    <message>
        <source>Contact support</source>
        <translation>Contacter le service client</translation>
    </message>
    <message>
        <source>Chat with the Lumen &amp; Co. team (F1)</source>
        <translation>Discuter avec l’équipe Lumen &amp; Co. (F1)</translation>
    </message>
    <message>
        <source>Add to basket</source>
        <translation>Ajouter au panier</translation>
    </message>
    <message>
        <source>Add %1 to basket</source>
        <translation>Ajouter « %1 » au panier</translation>
    </message>
    <message>
        <source>&amp;Account</source>
        <translation>&amp;Compte</translation>
    </message>
    <message>
        <source>Switch &amp;User…</source>
        <translation>Changer d’&amp;utilisateur…</translation>
    </message>
    <message>
        <source>&amp;Quit</source>
        <translation>&amp;Quitter</translation>
    </message>
    <message>
        <source>&amp;Language</source>
        <translation>&amp;Langue</translation>
    </message>
    <message>
        <source>&amp;Help</source>
        <translation>&amp;Aide</translation>
    </message>
    <message>
        <source>&amp;Contact Support</source>
        <translation>&amp;Contacter le service client</translation>
    </message>
    <message>
        <source>a guest</source>
        <translation>un invité</translation>
    </message>
    <message numerus="yes">
        <source>Signed in as %1 · %n item(s) in the basket</source>
        <translation>
            <numerusform>Connecté en tant que %1 · %n article dans le panier</numerusform>
            <numerusform>Connecté en tant que %1 · %n articles dans le panier</numerusform>
        </translation>
    </message>
    <message>
        <source>Switch User</source>
        <translation>Changer d’utilisateur</translation>
    </message>
    <message>
        <source>User &amp;ID:</source>
        <translation>&amp;Identifiant :</translation>
    </message>
    <message>
        <source>&amp;Name:</source>
        <translation>&amp;Nom :</translation>
    </message>
</context>
</TS>