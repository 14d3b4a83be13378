# The destructor stands after the other operations.
/virtual ~eKorTask/d
/virtual void eKorTaskTimeInterval/a\
    virtual ~eKorTask() = default;
