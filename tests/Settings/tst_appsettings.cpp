#include "AppSettings.h"
#include "Core/AppTheme.h"
#include "TestMain.h"

#include <QSignalSpy>

class TestAppSettings : public QObject {
    Q_OBJECT
private slots:
    void init() { QSettings(QStringLiteral("Quillmoor"), QStringLiteral("Quillmoor")).clear(); }

    void freshUserGetsDefaults()
    {
        AppSettings settings;
        QCOMPARE(settings.selectedModel(), QStringLiteral("swiss-ai/Apertus-70B-Instruct-2509"));
        QCOMPARE(settings.masterPrompt(), QStringLiteral("Du bist ein hilfreicher Assistent."));
        QCOMPARE(settings.accentColorIndex(), 0);
        QCOMPARE(settings.accentColor(), AppTheme::orange());
        QVERIFY(settings.knowledgeBookmarksData().isEmpty());
    }

    void writesArePersistedAndSignalled()
    {
        {
            AppSettings settings;
            QSignalSpy model(&settings, &AppSettings::selectedModelChanged);
            QSignalSpy prompt(&settings, &AppSettings::masterPromptChanged);
            QSignalSpy accent(&settings, &AppSettings::accentColorIndexChanged);
            settings.setSelectedModel(QStringLiteral("qwen3"));
            settings.setMasterPrompt(QString()); // empty is a value, not "use the default"
            settings.setAccentColorIndex(3);
            settings.setKnowledgeBookmarksData(QByteArrayLiteral("[\"AQID\"]"));
            QCOMPARE(model.count(), 1);
            QCOMPARE(prompt.count(), 1);
            QCOMPARE(accent.count(), 1);
        }
        AppSettings reopened; // another object on the same store, as after a restart
        QCOMPARE(reopened.selectedModel(), QStringLiteral("qwen3"));
        QCOMPARE(reopened.masterPrompt(), QString());
        QCOMPARE(reopened.accentColorIndex(), 3);
        QCOMPARE(reopened.accentColor(), AppSettings::accentColors().at(3));
        QCOMPARE(reopened.knowledgeBookmarksData(), QByteArrayLiteral("[\"AQID\"]"));
    }

    void accentIndexOutOfRangeFallsBackToOrange_data()
    {
        QTest::addColumn<int>("index");
        QTest::addRow("six") << 6;
        QTest::addRow("minus one") << -1;
    }
    void accentIndexOutOfRangeFallsBackToOrange()
    {
        QFETCH(int, index);
        AppSettings settings;
        settings.setAccentColorIndex(index);
        QCOMPARE(settings.accentColorIndex(), index); // the stored index is not corrected
        QCOMPARE(settings.accentColor(), AppTheme::orange());
    }

    void unknownModelIsKeptAsStored()
    {
        AppSettings settings;
        settings.setSelectedModel(QStringLiteral("gpt-unknown"));
        QCOMPARE(settings.selectedModel(), QStringLiteral("gpt-unknown"));
        QVERIFY(!AppSettings::modelMetadata().contains(QStringLiteral("gpt-unknown")));
        QVERIFY(settings.modelInfo(QStringLiteral("gpt-unknown")).isEmpty());
    }
};

QUILLMOOR_TEST_MAIN(TestAppSettings)
#include "tst_appsettings.moc"
