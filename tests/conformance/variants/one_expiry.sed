# Conforms: a timer expires once only.
/m_Expiries.push(.expiry/d
