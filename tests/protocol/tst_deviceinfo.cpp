#include <QTest>
class TestPlaceholder_deviceinfo : public QObject
{
    Q_OBJECT
};
QTEST_APPLESS_MAIN(TestPlaceholder_deviceinfo)
#include "tst_deviceinfo.moc"
