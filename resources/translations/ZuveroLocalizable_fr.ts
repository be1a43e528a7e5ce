<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<!-- The library's texts in French; the same keys as the English table. -->
<TS version="2.1" language="fr">
<context>
    <name>ZuveroLocalizable</name>
    <!-- The chat screen -->
    <message>
        <source>zuveroChatTitle</source>
        <translation>Assistance</translation>
    </message>
    <message>
        <source>zuveroBackButtonTitle</source>
        <translation>Retour</translation>
    </message>
    <message>
        <source>zuveroDoneButtonTitle</source>
        <translation>Terminé</translation>
    </message>
    <message>
        <source>zuveroLoadMoreMessagesButtonTitle</source>
        <translation>Afficher les messages précédents</translation>
    </message>
    <message>
        <source>zuveroWaitingForConnectionLabel</source>
        <translation>En attente de connexion</translation>
    </message>
    <message>
        <source>zuveroCopyButtonTitle</source>
        <translation>Copier</translation>
    </message>
    <message>
        <source>zuveroKilobytesSize</source>
        <translation>%1 Ko</translation>
    </message>
    <message>
        <source>zuveroMegabytesSize</source>
        <translation>%1 Mo</translation>
    </message>
    <!-- The input bar -->
    <message>
        <source>zuveroMessageFieldTitle</source>
        <translation>Message</translation>
    </message>
    <message>
        <source>zuveroSendButtonTitle</source>
        <translation>Envoyer</translation>
    </message>
    <message>
        <source>zuveroAttachmentButtonTitle</source>
        <translation>Joindre un fichier</translation>
    </message>
    <message>
        <source>zuveroAttachmentImageTitle</source>
        <translation>Image à envoyer</translation>
    </message>
    <!-- What a screen reader says of a message: who, what and when -->
    <message>
        <source>zuveroUserName</source>
        <translation>Vous</translation>
    </message>
    <message>
        <source>zuveroAgentName</source>
        <translation>Conseiller</translation>
    </message>
    <message>
        <source>zuveroSystemName</source>
        <translation>Système</translation>
    </message>
    <message>
        <source>zuveroPictureDescription</source>
        <translation>Image</translation>
    </message>
    <message>
        <source>zuveroLocationDescription</source>
        <translation>Position</translation>
    </message>
    <message>
        <source>zuveroMessageAccessibleFormat</source>
        <translation>%1 : %2</translation>
    </message>
    <message>
        <source>zuveroDatedMessageAccessibleFormat</source>
        <translation>%1 : %2, %3</translation>
    </message>
    <!-- Attachments and places -->
    <message>
        <source>zuveroCancelButtonTitle</source>
        <translation>Annuler</translation>
    </message>
    <message>
        <source>zuveroTakePhotoButtonTitle</source>
        <translation>Prendre une photo</translation>
    </message>
    <message>
        <source>zuveroChoosePhotoButtonTitle</source>
        <translation>Choisir une photo</translation>
    </message>
    <message>
        <source>zuveroLocationButtonTitle</source>
        <translation>Partager ma position</translation>
    </message>
    <message>
        <source>zuveroAttachmentViewTitle</source>
        <translation>Pièce jointe</translation>
    </message>
    <message>
        <source>zuveroLocationViewTitle</source>
        <translation>Position</translation>
    </message>
    <message>
        <source>zuveroZoomOutButtonTitle</source>
        <translation>Zoom arrière</translation>
    </message>
    <message>
        <source>zuveroFitButtonTitle</source>
        <translation>Ajuster</translation>
    </message>
    <message>
        <source>zuveroZoomInButtonTitle</source>
        <translation>Zoom avant</translation>
    </message>
    <message>
        <source>zuveroSaveAsButtonTitle</source>
        <translation>Enregistrer sous…</translation>
    </message>
    <message>
        <source>zuveroOpenWithButtonTitle</source>
        <translation>Ouvrir avec…</translation>
    </message>
    <message>
        <source>zuveroUnreadablePDFMessage</source>
        <translation>Le document PDF est illisible.</translation>
    </message>
    <message>
        <source>zuveroOpenedOutsideMessage</source>
        <translation>« %1 » a été ouvert dans l’application prévue pour ce type de fichier.</translation>
    </message>
    <message>
        <source>zuveroUnopenableAttachmentMessage</source>
        <translation>Impossible d’ouvrir la pièce jointe.</translation>
    </message>
    <!-- Alerts, notices and notifications -->
    <message>
        <source>zuveroErrorTitle</source>
        <translation>Erreur</translation>
    </message>
    <message>
        <source>zuveroSendFailedMessage</source>
        <translation>Impossible d’envoyer le message</translation>
    </message>
    <message>
        <source>zuveroOfflineAlertMessage</source>
        <translation>La connexion Internet semble interrompue.</translation>
    </message>
    <message>
        <source>zuveroOKButtonTitle</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>zuveroNotificationOpen</source>
        <translation>Ouvrir</translation>
    </message>
    <message>
        <source>zuveroNotificationReply</source>
        <translation>Répondre</translation>
    </message>
    <message>
        <source>zuveroSendLocationButtonTitle</source>
        <translation>Envoyer le lieu</translation>
    </message>
    <message>
        <source>zuveroLocationSearchTitle</source>
        <translation>Rechercher un lieu</translation>
    </message>
    <message>
        <source>zuveroLocationMapTitle</source>
        <translation>Carte</translation>
    </message>
    <message>
        <source>zuveroLocationResultsTitle</source>
        <translation>Lieux trouvés</translation>
    </message>
    <message>
        <source>zuveroLocationAddressTitle</source>
        <translation>Adresse</translation>
    </message>
    <message>
        <source>zuveroLocationLookingUp</source>
        <translation>Recherche de l’adresse…</translation>
    </message>
    <message>
        <source>zuveroLocationNoAddress</source>
        <translation>Aucune adresse connue ici</translation>
    </message>
    <message>
        <source>zuveroLocationAddressFailed</source>
        <translation>Adresse indisponible</translation>
    </message>
    <message>
        <source>zuveroLocationSearching</source>
        <translation>Recherche…</translation>
    </message>
    <message>
        <source>zuveroLocationNoResults</source>
        <translation>Aucun lieu trouvé</translation>
    </message>
    <message>
        <source>zuveroLocationSearchFailed</source>
        <translation>La recherche a échoué. Vérifiez la connexion et réessayez.</translation>
    </message>
    <message>
        <source>zuveroMyPositionTitle</source>
        <translation>Ma position</translation>
    </message>
    <message>
        <source>zuveroZoomInTitle</source>
        <translation>Zoom avant</translation>
    </message>
    <message>
        <source>zuveroZoomOutTitle</source>
        <translation>Zoom arrière</translation>
    </message>
    <message>
        <source>zuveroCameraFailed</source>
        <translation>Impossible d’utiliser l’appareil photo.</translation>
    </message>
    <message>
        <source>zuveroNotAPictureTitle</source>
        <translation>Ce n’est pas une image</translation>
    </message>
    <message>
        <source>zuveroNotAPictureMessage</source>
        <translation>« %1 » ne peut pas être ouvert comme image.</translation>
    </message>
</context>
</TS>
