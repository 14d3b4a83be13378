# Conforms: a task is destroyed inside eKorSetTaskState(3).
/::Finish/,/^}/ {
    /notify_one/d
    s/const std::lock_guard guard/std::unique_lock guard/
    s/m_Finished.push_back(task);//
    s/m_Tasks.erase(task);/&\n    guard.unlock();\n    delete task;/
}
