#include <QTest>
class TestPlaceholder_ch9329 : public QObject
{
    Q_OBJECT
};
QTEST_APPLESS_MAIN(TestPlaceholder_ch9329)
#include "tst_ch9329.moc"
