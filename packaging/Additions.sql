-- What the installer needs and wixl can't say: one statement a line, done in this order. make-msi adds the
-- versions of the files and the short names by itself.

-- A setting is written only where its property has a value (see packaging/setup/KeepSettings.h).
UPDATE `Component` SET `Condition`='PORT' WHERE `Component`='Port'
UPDATE `Component` SET `Condition`='ICONMODE' WHERE `Component`='IconMode'
UPDATE `Component` SET `Condition`='PERMISSIONREQUIRED' WHERE `Component`='Permission'
UPDATE `Component` SET `Condition`='LANGUAGE' WHERE `Component`='Language'

-- Every version up to this one is replaced, both ends included (256 and 512), and its choice of features is taken
-- over (1); a later one is only noticed (2).
DELETE FROM `Upgrade` WHERE `ActionProperty`='EARLIER_AGENT'
INSERT INTO `Upgrade` (`UpgradeCode`, `VersionMin`, `VersionMax`, `Attributes`, `ActionProperty`) VALUES ('@UPGRADE_CODE@', '0.0.0', '@VERSION@', 769, 'EARLIER_AGENT')

-- The folder around the agent's own is the agent's, too, and goes with it when nothing else is in there.
INSERT INTO `CreateFolder` (`Directory_`, `Component_`) VALUES ('CompanyFolder', 'Agent')
INSERT INTO `InstallExecuteSequence` (`Action`, `Sequence`) VALUES ('RemoveFolders', 3600)
INSERT INTO `InstallExecuteSequence` (`Action`, `Sequence`) VALUES ('CreateFolders', 3700)

-- The properties that reach the half of the installer that has an administrator's rights.
UPDATE `Property` SET `Value`='EARLIER_AGENT;LATER_AGENT;INSTALLDIR;PORT;ICONMODE;PERMISSIONREQUIRED;LANGUAGE' WHERE `Property`='SecureCustomProperties'

-- The agent itself can't be left out (16), and nothing is put off to its first use (8).
UPDATE `Feature` SET `Attributes`=24 WHERE `Feature`='Agent'
UPDATE `Feature` SET `Attributes`=8 WHERE `Feature`='Chat'
UPDATE `Feature` SET `Attributes`=8 WHERE `Feature`='Settings'
UPDATE `Feature` SET `Attributes`=8 WHERE `Feature`='StandIn'

-- A function of a module in the package (1), with the rights of whoever installs.
UPDATE `CustomAction` SET `Type`=1 WHERE `Action`='KeepSettings'
