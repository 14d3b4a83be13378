# A timer that is disarmed goes on.
s/m_Intervals.erase(id);.*/m_Intervals.erase(id - id);/
