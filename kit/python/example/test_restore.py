"""A first test of a build of one's own: pytest --halcyon-app ./halcyon-lineup"""


def test_a_new_tv_gets_the_channels_of_the_old_one(tv, factory_tv):
    tv.set("favname1", "Family")
    assert tv.run().outcome == "done"
    restore = factory_tv.run("operation=restore")
    assert restore.outcome == "done"
    assert restore.items["channels"] == "restored"
    assert restore.calls.count("app_control_reply_to_launch_request") == 1
    assert tv.differs_from(factory_tv) is None


def test_a_lost_item_is_no_lost_restore(tv, factory_tv):
    tv.run()
    rule = factory_tv.fault("RestoreIssDbArchive", "result=0")
    restore = factory_tv.run("operation=restore")
    assert (restore.outcome, restore["reply"], restore.items["iss"]) == ("done in part", 0, "differs")
    assert [fault["rule"] for fault in restore["faults"]] == [rule]
    assert "Failed to restore iss database!" in restore.log
