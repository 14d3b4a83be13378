# A task is destroyed under the lock that arming takes.
/::DestroyFinished/,/^}/ {
    /lock\./d
    s/^{/{\n    static_cast<void>(lock);/
}
