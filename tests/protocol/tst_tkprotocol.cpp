#include <QTest>
class TestPlaceholder_tkprotocol : public QObject
{
    Q_OBJECT
};
QTEST_APPLESS_MAIN(TestPlaceholder_tkprotocol)
#include "tst_tkprotocol.moc"
