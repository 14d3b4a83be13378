# A key that is found gives 0.
s/? 1 : 0/? 0 : -1/
