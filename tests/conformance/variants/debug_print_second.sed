# One operation stands in front of DebugPrint.
/virtual void Flush/d
/virtual void AssertPrint/a\
    virtual void Flush() = 0;
