# A rejected format leaves what was formatted before.
/dest.0. = /d
