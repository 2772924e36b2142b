#include "AppSettings.h"
#include "Core/AppTheme.h"
#include "TestMain.h"

#include <QSignalSpy>

class TestAppSettings : public QObject {
    Q_OBJECT
private slots:
    void writesArePersistedAndSignalled()
    {
        {
            AppSettings settings;
            QCOMPARE(settings.selectedModel(), AppSettings::DefaultModel);
            QCOMPARE(settings.masterPrompt(), AppSettings::DefaultMasterPrompt);
            QCOMPARE(settings.accentColor(), AppTheme::orange());
            QSignalSpy model(&settings, &AppSettings::selectedModelChanged);
            QSignalSpy prompt(&settings, &AppSettings::masterPromptChanged);
            QSignalSpy accent(&settings, &AppSettings::accentColorIndexChanged);
            settings.setSelectedModel(QStringLiteral("gpt-unknown")); // a model outside the list is kept
            settings.setMasterPrompt(QString()); // empty is a value, not "use the default"
            settings.setAccentColorIndex(3);
            settings.setKnowledgeBookmarksData(QByteArrayLiteral("[\"AQID\"]"));
            QCOMPARE(model.count(), 1);
            QCOMPARE(prompt.count(), 1);
            QCOMPARE(accent.count(), 1);
        }
        AppSettings reopened; // another object on the same store, as after a restart
        QCOMPARE(reopened.selectedModel(), QStringLiteral("gpt-unknown"));
        QVERIFY(reopened.modelInfo(QStringLiteral("gpt-unknown")).isEmpty());
        QCOMPARE(reopened.masterPrompt(), QString());
        QCOMPARE(reopened.accentColor(), AppSettings::accentColors().at(3));
        QCOMPARE(reopened.knowledgeBookmarksData(), QByteArrayLiteral("[\"AQID\"]"));
        // An index out of range is stored as it is and shows orange.
        for (int index : {6, -1}) {
            reopened.setAccentColorIndex(index);
            QCOMPARE(reopened.accentColorIndex(), index);
            QCOMPARE(reopened.accentColor(), AppTheme::orange());
        }
    }
};

QUILLMOOR_TEST_MAIN(TestAppSettings)
#include "tst_appsettings.moc"
