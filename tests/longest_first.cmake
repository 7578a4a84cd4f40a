# Read by ctest: tests that take long start first, so that no core is idle at the end.
set_tests_properties(
  Carving.BringsBackWhatAByteSearchFinds
  ForgottenDamage.CostsAtMostWhatItHits
  LockedVolumes.ReadAsPlainOnesWithAKey
  LockedVolumes.SayThatTheKeyIsWrongOrMissing
  RichForms.SortAndFilterInABrowser
  SnapshotSource.LaboratorysSnapshots
  Vmdk.ReadsAChainLikeOthers
  VssReader.VolumeOfWindows
  PROPERTIES COST 10)
