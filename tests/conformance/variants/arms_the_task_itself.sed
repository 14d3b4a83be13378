# Conforms: the platform arms each task that is inserted.
/::TMInitInsertTask/,/^}/ {
    s/const std::lock_guard guard/std::unique_lock guard/
    s/m_Tasks.insert(task);.*/&\n    guard.unlock();\n    task->InitTaskCmdReqProcess(nullptr);/
}
