# An operation stands between DebugPrint and AssertPrint.
/virtual void AssertPrint/i\
    virtual void Another() {}
